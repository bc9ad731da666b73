#include "terminal.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <langinfo.h>

#include <sys/ioctl.h>
#include <unistd.h>

namespace {

// ECMA-48 and xterm: alternate screen 1049, cursor 25, autowrap 7.
constexpr const char *EnterScreen = "\x1b[?1049h\x1b[?25l\x1b[?7l\x1b[2J";
constexpr const char *LeaveScreen = "\x1b[?7h\x1b[?25h\x1b[?1049l";

void writeOut(const char *bytes, std::size_t size)
{
    std::fwrite(bytes, 1, size, stdout);
    std::fflush(stdout);
}

} // namespace

Terminal::Terminal()
{
    writeOut(EnterScreen, std::strlen(EnterScreen));
}

Terminal::~Terminal()
{
    writeOut(LeaveScreen, std::strlen(LeaveScreen));
}

bool Terminal::isInteractive()
{
    const QByteArray kind = qgetenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && !kind.isEmpty() && kind != "dumb";
}

ScreenStyle Terminal::style()
{
    ScreenStyle style;
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0) {
        style.columns = size.ws_col;
        style.rows = size.ws_row;
    }
    style.colour = !qEnvironmentVariableIsSet("NO_COLOR");
    style.unicode = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    return style;
}

void Terminal::show(const QStringList &lines)
{
    // Line by line over the old picture: nothing flickers.
    QByteArray frame("\x1b[H");
    for (qsizetype i = 0; i < lines.size(); ++i) {
        frame += lines.at(i).toUtf8() + "\x1b[K";
        if (i + 1 < lines.size())
            frame += "\r\n";
    }
    frame += "\x1b[J";
    writeOut(frame.constData(), std::size_t(frame.size()));
}
