#include "orvd-gpsd/options.h"

#include "platform/devicepaths.h"

#include <QCommandLineParser>

namespace orvdgpsd {
using namespace Qt::StringLiterals;
namespace {
constexpr int longestSettleTimeMs = 10000;

Options wrong(const QString &text)
{
    Options options;
    options.outcome = Options::Outcome::Wrong;
    options.text = text;
    return options;
}
} // namespace

Options readOptions(const QStringList &arguments)
{
    Options options;
    QCommandLineParser parser;
    parser.setApplicationDescription(
        u"Serves lodestard as its GNSS engine, from any receiver that gpsd knows."_s);
    const QCommandLineOption help({u"h"_s, u"help"_s}, u"Print this help and exit."_s);
    const QCommandLineOption version({u"V"_s, u"version"_s}, u"Print the version and exit."_s);
    const QCommandLineOption socket(u"socket"_s, u"Where lodestard connects."_s, u"path"_s,
                                    DevicePaths{}.engineSocket());
    const QCommandLineOption host(u"host"_s,
                                  u"Host that gpsd runs on; one that does not answer holds up everything."_s,
                                  u"name"_s, QString::fromLatin1(options.gpsd.host));
    const QCommandLineOption port(u"port"_s, u"Port of gpsd."_s, u"number"_s,
                                  QString::fromLatin1(options.gpsd.port));
    const QCommandLineOption device(u"device"_s, u"Use this one of gpsd's receivers only."_s, u"path"_s);
    const QCommandLineOption settle(
        u"settle"_s, u"Silence, in milliseconds, after which an epoch is complete."_s, u"time"_s, u"400"_s);
    const QCommandLineOption verbose({u"v"_s, u"verbose"_s}, u"Log every request."_s);
    parser.addOptions({socket, host, port, device, settle, verbose, help, version});

    if (!parser.parse(arguments))
        return wrong(parser.errorText());
    if (parser.isSet(help)) {
        options.outcome = Options::Outcome::Help;
        options.text = parser.helpText();
        return options;
    }
    if (parser.isSet(version)) {
        options.outcome = Options::Outcome::Version;
        options.text = u"orvd-gpsd "_s + QString::fromLatin1(LODESTARD_VERSION) + u'\n';
        return options;
    }
    if (!parser.positionalArguments().isEmpty())
        return wrong(u"Unexpected argument '%1'."_s.arg(parser.positionalArguments().constFirst()));

    bool ok = false;
    const uint portNumber = parser.value(port).toUInt(&ok);
    if (!ok || portNumber == 0 || portNumber > 65535)
        return wrong(u"'%1' is no port."_s.arg(parser.value(port)));
    const int settleMs = parser.value(settle).toInt(&ok);
    if (!ok || settleMs < 1 || settleMs > longestSettleTimeMs)
        return wrong(u"'%1' is no time from 1 to %2 milliseconds."_s.arg(parser.value(settle))
                         .arg(longestSettleTimeMs));
    if (parser.value(socket).isEmpty() || parser.value(host).isEmpty())
        return wrong(u"The socket's path and the host need a value."_s);

    options.socket = parser.value(socket);
    options.gpsd = {parser.value(host).toLocal8Bit(), QByteArray::number(portNumber),
                    parser.value(device).toLocal8Bit()};
    options.settleTime = std::chrono::milliseconds(settleMs);
    options.verbose = parser.isSet(verbose);
    return options;
}
} // namespace orvdgpsd
