#include "outputdevice.h"

#include "settingkeys.h"

#include <QMediaDevices>

#include <algorithm>

QAudioDevice configuredOutputDevice()
{
    const QString wanted = Settings::outputDevice.read();
    if (!wanted.isEmpty()) {
        const QList<QAudioDevice> devices = QMediaDevices::audioOutputs();
        for (const QAudioDevice& candidate : devices) {
            if (candidate.description() == wanted)
                return candidate;
        }
    }
    return QMediaDevices::defaultAudioOutput();
}

bool outputListed(const QAudioDevice& device, const QList<QAudioDevice>& outputs)
{
    if (device.isNull())
        return false;
    return std::any_of(outputs.begin(), outputs.end(),
                       [&device](const QAudioDevice& candidate) { return candidate.id() == device.id(); });
}
