#pragma once

#include "audiodecoder.h"

#include <QList>

#include <array>
#include <memory>

// EBU R 128 measurement of one programme: integrated loudness, loudness range and the momentary
// loudness of the last 400 ms and the true peak (4x oversampled below 96 kHz), all by libebur128, whose
// histogram mode keeps memory fixed whatever the programme's length.
class LoudnessMeter
{
public:
    LoudnessMeter(int channels, int sampleRate, const QList<AudioDecoder::ChannelKind>& kinds);
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    bool isValid() const;

    // Interleaved frames, channels floats each. Fed about 100 ms at a time, the meter keeps the
    // energy of each of the last four calls for momentaryLufs().
    bool addFrames(const float* frames, qint64 count);

    // LUFS of the last four calls (400 ms when each was 100 ms); minus infinity for silence. Taken from
    // the energies of the calls, so each 100 ms is summed once instead of four times.
    double momentaryLufs() const;
    double integratedLufs() const;
    // LU; 0 when there is too little programme to tell.
    double loudnessRangeLu() const;
    // dBTP over all channels; minus infinity for digital silence.
    double truePeakDbtp() const;

private:
    struct State; // libebur128's state is an unnamed struct, which cannot be declared ahead
    std::unique_ptr<State> m_state;
    int m_channels = 0;
    int m_sampleRate = 0;
    // The mean K-weighted energy and the frame count of the last four calls, oldest first.
    std::array<double, 4> m_energies{};
    std::array<qint64, 4> m_frames{};
};
