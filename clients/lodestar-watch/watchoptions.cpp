#include "watchoptions.h"

#include <QCommandLineParser>

using namespace Qt::StringLiterals;

namespace {

ParsedCommandLine refused(const QString &why)
{
    return {std::nullopt, u"lodestar-watch: "_s + why + u"\nTry 'lodestar-watch --help'.\n"_s,
            int(WatchStatus::Usage)};
}

std::optional<quint32> methodMask(const QString &name)
{
    if (name == "satellite"_L1)
        return 0x000000ffU;
    if (name == "network"_L1)
        return 0xffffff00U;
    if (name == "all"_L1)
        return 0xffffffffU;
    return std::nullopt;
}

// Digits only, so that "1e3" or "-5" are refused rather than understood.
std::optional<int> wholeNumber(const QString &text)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    return ok && value >= 0 ? std::optional(value) : std::nullopt;
}

} // namespace

ParsedCommandLine parseCommandLine(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Shows the fixes and satellites that lodestard hands to applications.\n\n"
        "Exit status: 0 a fix arrived (with --network: of both clients), 1 none did, 2 wrong usage, 3 lodestard is not there."_s);
    const QCommandLineOption help({u"h"_s, u"help"_s}, u"Show this help and leave."_s);
    const QCommandLineOption version({u"V"_s, u"version"_s}, u"Show the version and leave."_s);
    const QCommandLineOption json({u"j"_s, u"json"_s}, u"Write one line of JSON a report."_s);
    const QCommandLineOption plain({u"p"_s, u"plain"_s},
                                   u"Write one line of text a report, even on a terminal."_s);
    const QCommandLineOption satellites({u"S"_s, u"satellites"_s}, u"With --json: name every satellite."_s);
    const QCommandLineOption methods({u"m"_s, u"methods"_s}, u"satellite (the default), network or all."_s,
                                     u"methods"_s, u"satellite"_s);
    const QCommandLineOption interval({u"i"_s, u"interval"_s}, u"Milliseconds between fixes (1000)."_s,
                                      u"milliseconds"_s, u"1000"_s);
    const QCommandLineOption seconds({u"s"_s, u"seconds"_s}, u"Leave after this time."_s, u"seconds"_s,
                                     u"0"_s);
    const QCommandLineOption count({u"n"_s, u"count"_s}, u"Leave after so many valid fixes."_s, u"fixes"_s,
                                   u"0"_s);
    const QCommandLineOption network(u"network"_s,
                                     u"Be a second client as well, of network positions this far apart."_s,
                                     u"milliseconds"_s, u"0"_s);
    const QCommandLineOption wait({u"w"_s, u"wait"_s}, u"Wait for lodestard when it is not there."_s);
    parser.addOptions(
        {help, version, json, plain, satellites, methods, interval, seconds, count, network, wait});

    if (!parser.parse(arguments))
        return refused(parser.errorText());
    if (parser.isSet(help))
        return {std::nullopt, parser.helpText(), 0};
    if (parser.isSet(version))
        return {std::nullopt, u"lodestar-watch " LODESTARD_VERSION "\n"_s, 0};
    if (!parser.positionalArguments().isEmpty())
        return refused(u"unexpected argument '%1'"_s.arg(parser.positionalArguments().constFirst()));
    if (parser.isSet(json) && parser.isSet(plain))
        return refused(u"--json and --plain exclude each other"_s);

    WatchOptions options;
    if (parser.isSet(json))
        options.output = WatchOptions::Output::Json;
    if (parser.isSet(plain))
        options.output = WatchOptions::Output::Plain;
    options.satellitesInJson = parser.isSet(satellites);
    options.wait = parser.isSet(wait);
    const auto mask = methodMask(parser.value(methods));
    if (!mask)
        return refused(u"no such methods: '%1'"_s.arg(parser.value(methods)));
    options.methods = *mask;
    const struct {
        const QCommandLineOption &option;
        int &target;
    } numbers[] = {{interval, options.intervalMilliseconds},
                   {seconds, options.seconds},
                   {count, options.count},
                   {network, options.networkMilliseconds}};
    for (const auto &[option, target] : numbers) {
        const auto value = wholeNumber(parser.value(option));
        if (!value)
            return refused(u"--%1 wants a whole number, not '%2'"_s.arg(option.names().constLast(),
                                                                        parser.value(option)));
        target = *value;
    }
    return {options, {}, 0};
}
