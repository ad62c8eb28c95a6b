#pragma once

#include <QList>
#include <QMetaType>
#include <QString>
#include <QtGlobal>

namespace sayvo {

// The platform's handle for an audio device; valid only while the device is present.
using AudioObjectId = quint32;

// One input device the user may dictate with. A plain value, compared field by field.
struct AudioInputDevice
{
    AudioObjectId id = 0;
    // Persistent across runs and re-plugs; this is what the settings remember.
    QString uid;
    QString name;
    bool isBluetooth = false;
    double sampleRate = 0.0;

    friend bool operator==(const AudioInputDevice &, const AudioInputDevice &) = default;
};

using AudioInputDeviceList = QList<AudioInputDevice>;

} // namespace sayvo

Q_DECLARE_METATYPE(sayvo::AudioInputDevice)
