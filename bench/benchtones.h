#pragma once

#include <QString>

// A stereo 44.1 kHz WAV file of one sine tone, made with sox, for the benchmarks that play real
// files. Amplitude is linear 0..1. Returns the file's path, or an empty string when sox failed.
QString makeBenchTone(const QString& dir, const QString& fileName, int frequency, double seconds,
                      double amplitude = 0.5);
