#include "settings/locationsecuresettings.h"

#include "platform/bluez.h"
#include "platform/sysinfo.h"
#include "settings/settingsfile.h"
#include "settings/settingstable.h"
#include "settings/settingvalue.h"

#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QDebug>
#include <QSettings>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString InternalGpsDisabledKey = u"InternalGpsDisabled"_s;
const QString InternalReceiverKey = u"SatellitePositioningInternal"_s;
const QString ExternalNameKey = u"SatellitePositioningExternalName"_s;
const QString ExternalAddressKey = u"SatellitePositioningExternalAddress"_s;

void refuse(const QDBusMessage &call, QDBusError::ErrorType error, const QString &text)
{
    if (call.type() != QDBusMessage::MethodCallMessage)
        return;
    call.setDelayedReply(true); // the error is the reply; the slot's own value is not sent
    if (call.isReplyRequired())
        QDBusConnection::sessionBus().send(call.createErrorReply(error, text));
}

} // namespace

LocationSecureSettings::LocationSecureSettings(QObject *parent, LocationSecureSettingsIF *handlerIF,
                                               const DevicePaths &paths)
    : QDBusAbstractAdaptor(parent)
    , handler(handlerIF)
    , internalGpsDisabled(readInternalGpsDisabled(paths))
    , userSettings(std::make_unique<SettingsFile>(paths.userSettings()))
    , operatorSettings(std::make_unique<QSettings>(paths.operatorSettings(), QSettings::NativeFormat))
{
    qRegisterMetaType<QDBusVariant>(); // without it setSetting is missing from the introspection
    seed();
}

LocationSecureSettings::~LocationSecureSettings()
{
    writePending();
}

QVariant LocationSecureSettings::value(const QString &key)
{
    if (!userSettings->contains(key)) {
        qWarning() << "Wrong location setting key:" << key;
        return {};
    }
    const bool external = key == ExternalNameKey || key == ExternalAddressKey;
    if (external && !userSettings->value(key).toString().isEmpty() && !isExternalDeviceKnown())
        forgetExternalDevice(key);
    return userSettings->value(key);
}

bool LocationSecureSettings::setSetting(QString key, QDBusVariant value)
{
    if (!userSettings->contains(key)) {
        qWarning() << "Location settings does not contain setting for:" << key;
        return false;
    }
    const SettingDefinition *definition = findSetting(key);
    if (!definition || !definition->userWritable) {
        qWarning() << "User is not allowed to change value for:" << key;
        return false;
    }
    const auto storable = settingvalue::storable(value.variant());
    if (storable)
        userSettings->setValue(key, *storable);
    if (!storable || !userSettings->write()) {
        qCritical("LocationSecureSettings::%s: Cannot write setting %s to disk", "set", qUtf8Printable(key));
        return false;
    }
    emit valueChanged(key);
    return true;
}

QDBusVariant LocationSecureSettings::getSetting(QString key, const QDBusMessage &call)
{
    const QVariant stored = value(key);
    // Qt drops a reply that it cannot marshal, and the caller would wait for its time-out.
    if (!settingvalue::isSendable(stored)) {
        refuse(call, userSettings->contains(key) ? QDBusError::Failed : QDBusError::InvalidArgs,
               u"No value that can be sent for location setting "_s + key);
    }
    return QDBusVariant(stored);
}

bool LocationSecureSettings::resetToDefaults()
{
    for (const SettingDefinition &definition : settingDefinitions()) {
        const QString &key = definition.key;
        if (key == InternalGpsDisabledKey)
            continue;
        const QVariant target =
            operatorSettings->contains(key) ? operatorSettings->value(key) : definition.defaultValue;
        // QVariant reads numbers and booleans out of the text that the file gave back.
        if (userSettings->value(key) == target)
            continue;
        store(key, target);
        emit valueChanged(key);
    }
    return true;
}

bool LocationSecureSettings::clearAssistanceData(int data)
{
    handler->clearAssistanceData(data);
    return true;
}

void LocationSecureSettings::seed()
{
    for (const SettingDefinition &definition : settingDefinitions()) {
        if (definition.key == InternalGpsDisabledKey)
            store(definition.key, internalGpsDisabled);
        else
            seedKey(definition.key, definition.defaultValue);
    }
}

void LocationSecureSettings::seedKey(const QString &key, const QVariant &defaultValue)
{
    if (userSettings->contains(key)) {
        qDebug() << "Keep previous setting: " << key << "=" << userSettings->value(key).toString();
    } else if (operatorSettings->contains(key)) {
        const QVariant seedValue = operatorSettings->value(key);
        qDebug() << "Use operator setting: " << key << "=" << seedValue.toString();
        store(key, seedValue);
    } else {
        qDebug() << "Use default setting: " << key << "=" << defaultValue.toString();
        store(key, defaultValue);
    }
}

// Written on the next turn of the event loop, with what else changes until then.
void LocationSecureSettings::store(const QString &key, const QVariant &value)
{
    if (!userSettings->hasUnwrittenChanges())
        QMetaObject::invokeMethod(
            this, [this] { writePending(); }, Qt::QueuedConnection);
    userSettings->setValue(key, value);
}

// A failure is told by the next setSetting, which writes all of it again.
void LocationSecureSettings::writePending()
{
    if (userSettings->hasUnwrittenChanges())
        static_cast<void>(userSettings->write());
}

// Losing the external receiver falls back to the internal one.
void LocationSecureSettings::forgetExternalDevice(const QString &key)
{
    qDebug() << "External BT device removed. Not returning it.";
    store(key, u""_s);
    emit valueChanged(key);
    if (!userSettings->value(InternalReceiverKey).toBool()) {
        store(InternalReceiverKey, true);
        emit valueChanged(InternalReceiverKey);
    }
}

bool LocationSecureSettings::isExternalDeviceKnown() const
{
    const QDBusConnection bus = QDBusConnection::systemBus();
    const auto adapter = bluez::defaultAdapter(bus);
    if (!adapter) {
        qWarning() << "Could not find default bluetooth adapter";
        return false;
    }
    const QString address = userSettings->value(ExternalAddressKey).toString();
    if (!bluez::findDevice(bus, *adapter, address)) {
        qDebug() << "Could not find device id:" << address;
        return false;
    }
    return true;
}

bool LocationSecureSettings::readInternalGpsDisabled(const DevicePaths &paths)
{
    auto context = sysinfo_init(paths);
    if (!context)
        return false;
    bool disabled = false;
    const auto data = sysinfo_get_value(*context, "/certs/ccc/pp/internal-gps-raw");
    if (data && !data->isEmpty()) {
        const auto first = static_cast<unsigned char>(data->front());
        qDebug("Internal gps disabled value: %X", unsigned{first});
        disabled = first == 0;
    }
    sysinfo_finish(*context);
    return disabled;
}
