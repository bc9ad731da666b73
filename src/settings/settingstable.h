#pragma once

#include <QString>
#include <QVariant>

#include <span>

// One setting that the daemon keeps.
struct SettingDefinition {
    QString key;
    QVariant defaultValue; // bool, int or QString
    bool userWritable;     // may be changed over D-Bus; the others belong to the operator
};

// All settings, in the order in which they are seeded and reset.
std::span<const SettingDefinition> settingDefinitions();
// Null for a key the table does not know.
const SettingDefinition *findSetting(QStringView key);
