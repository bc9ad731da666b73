#include "dialogservice.h"
#include "dialogsoptions.h"
#include "translations.h"

#include <QApplication>
#include <QLocale>
#include <QTranslator>

#include <cstdio>

#include <unistd.h>

namespace {

// Qt ends the process with a fatal message where there is no display; a core dump helps nobody then.
void onMessage(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    std::fprintf(stderr, "lodestar-dialogs: %s\n", qPrintable(text));
    if (type != QtFatalMsg)
        return;
    std::fputs("lodestar-dialogs: no display to show dialogs on (see DISPLAY and WAYLAND_DISPLAY)\n", stderr);
    _exit(int(DialogsStatus::NoDisplay));
}

QStringList plainArguments(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

int complain(const char *text)
{
    std::fprintf(stderr, "lodestar-dialogs: %s\n", text);
    return int(DialogsStatus::NoService);
}

} // namespace

int main(int argc, char **argv)
{
    // Before the application object, which needs a display.
    if (const auto answer = readArguments(plainArguments(argc, argv))) {
        std::fputs(qPrintable(answer->text), answer->status == DialogsStatus::Told ? stdout : stderr);
        return int(answer->status);
    }
    qInstallMessageHandler(onMessage);
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    QTranslator translator;
    loadTranslation(translator, QLocale());
    QApplication::installTranslator(&translator);
    QApplication::setLayoutDirection(QLocale().textDirection());

    if (!QDBusConnection::sessionBus().isConnected())
        return complain("cannot connect to the session bus");
    DialogService service(QDBusConnection::sessionBus());
    // Queued: calls that arrived in the meantime are answered first.
    QObject::connect(
        &service, &DialogService::left, &application, [] { QApplication::exit(int(DialogsStatus::Told)); },
        Qt::QueuedConnection);
    QObject::connect(
        &service, &DialogService::busLost, &application,
        [] { QApplication::exit(complain("the session bus is gone")); }, Qt::QueuedConnection);
    if (!service.start())
        return complain("another dialog service has the name com.varn.location.ui");
    return QApplication::exec();
}
