#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Why the program ended.
enum class DialogsStatus : int { Told = 0, NoService = 1, Usage = 2, NoDisplay = 3 };

// What is printed instead of serving.
struct PrintAndLeave {
    QString text;
    DialogsStatus status = DialogsStatus::Told;
};

// arguments without the program's name. Nothing: serve.
std::optional<PrintAndLeave> readArguments(const QStringList &arguments);
