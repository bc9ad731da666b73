#include "dialogsoptions.h"

using namespace Qt::StringLiterals;

std::optional<PrintAndLeave> readArguments(const QStringList &arguments)
{
    if (arguments.isEmpty())
        return std::nullopt;
    const QString &argument = arguments.constFirst();
    if (argument == "--help"_L1 || argument == "-h"_L1)
        return PrintAndLeave{
            u"Usage: lodestar-dialogs\n\n"
            "Asks the user for consent to positioning, and whether the network may learn the position.\n"
            "The session bus starts it when lodestard needs it; it needs a display.\n\n"
            "  -h, --help     Show this help and leave.\n"
            "  -V, --version  Show the version and leave.\n\n"
            "Exit status: 0 told to exit, 1 no session bus or another dialog service is there,\n"
            "2 wrong usage, 3 no display.\n"_s};
    if (argument == "--version"_L1 || argument == "-V"_L1)
        return PrintAndLeave{u"lodestar-dialogs " LODESTARD_VERSION "\n"_s};
    return PrintAndLeave{
        u"lodestar-dialogs: unexpected argument '%1'\nTry 'lodestar-dialogs --help'.\n"_s.arg(argument),
        DialogsStatus::Usage};
}
