#pragma once

#include <QAudioDevice>
#include <QList>

// The output whose description equals "audio/outputDevice" exactly; when none does (or the
// setting is empty), the system's default output.
QAudioDevice configuredOutputDevice();

// Whether a device of that id is among the outputs listed; a null device is never listed.
bool outputListed(const QAudioDevice& device, const QList<QAudioDevice>& outputs);
