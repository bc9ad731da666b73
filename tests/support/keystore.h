#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QVariant>

// The configuration store, through its own command: what another program of the handset reads and
// writes. KEY_STORE names the store.
class KeyStore
{
public:
    static bool isDconf() { return QStringLiteral(KEY_STORE) == QLatin1StringView("dconf"); }

    // The bus starts this service when somebody writes.
    static QString service()
    {
        return isDconf() ? QStringLiteral("ca.desrt.dconf") : QStringLiteral("org.gnome.GConf");
    }

    // Empty while unset
    static QString read(const QString &key)
    {
        const QString text =
            isDconf() ? run({QStringLiteral("read"), key}) : run({QStringLiteral("--get"), key});
        return text.trimmed();
    }
    static void write(const QString &key, const QVariant &value)
    {
        if (isDconf()) {
            const bool text = value.typeId() == QMetaType::QString;
            const bool wholeDouble = value.typeId() == QMetaType::Double && value == value.toInt();
            run({QStringLiteral("write"), key,
                 text          ? QStringLiteral("\"%1\"").arg(value.toString())
                 : wholeDouble ? QStringLiteral("%1.0").arg(value.toInt())
                               : value.toString()});
        } else {
            run({QStringLiteral("--type"), gconfType(value), QStringLiteral("--set"), QStringLiteral("--"),
                 key, value.toString()});
        }
    }
    static void writeList(const QString &key)
    {
        if (isDconf())
            run({QStringLiteral("write"), key, QStringLiteral("[1, 2]")});
        else
            run({QStringLiteral("--type"), QStringLiteral("list"), QStringLiteral("--list-type"),
                 QStringLiteral("int"), QStringLiteral("--set"), key, QStringLiteral("[1,2]")});
    }
    static void unset(const QString &key)
    {
        run({isDconf() ? QStringLiteral("reset") : QStringLiteral("--unset"), key});
    }
    static void unsetFolder(const QString &folder) // without a slash at the end
    {
        if (isDconf())
            run({QStringLiteral("reset"), QStringLiteral("-f"), folder + QLatin1Char('/')});
        else
            run({QStringLiteral("--recursive-unset"), folder});
    }

private:
    static QString gconfType(const QVariant &value)
    {
        switch (value.typeId()) {
        case QMetaType::Bool:
            return QStringLiteral("bool");
        case QMetaType::Int:
            return QStringLiteral("int");
        case QMetaType::Double:
            return QStringLiteral("float");
        default:
            return QStringLiteral("string");
        }
    }
    static QString run(const QStringList &arguments)
    {
        QProcess command;
        command.start(isDconf() ? QStringLiteral("dconf") : QStringLiteral("gconftool-2"), arguments);
        if (!command.waitForFinished() || command.exitCode() != 0)
            qFatal("%s: %s", qPrintable(arguments.join(QLatin1Char(' '))),
                   command.readAllStandardError().constData());
        return QString::fromUtf8(command.readAllStandardOutput());
    }
};
