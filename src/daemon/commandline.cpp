#include "daemon/commandline.h"

#include <algorithm>
#include <string_view>

namespace {

struct Option {
    std::string_view shortForm;
    std::string_view longForm;
    void (*apply)(LogFlags &);
};

constexpr Option Options[] = {
    {"-nl", "--no-logfile", [](LogFlags &flags) { flags.logToFile = false; }},
    {"-l", "--logfile", [](LogFlags &flags) { flags.logToFile = true; }},
    {"-w", "--warning", [](LogFlags &flags) { flags.warnings = true; }},
    {"-nw", "--no-warning", [](LogFlags &flags) { flags.warnings = false; }},
    {"-v", "--verbose", [](LogFlags &flags) { flags.verbose = true; }},
    {"-nv", "--no-verbose", [](LogFlags &flags) { flags.verbose = false; }},
    {"-d", "--daemon",
     [](LogFlags &flags) {
         flags.daemonize = true;
         flags.warnings = false;
         flags.verbose = false;
     }},
};

// Kept: the long forms of the log file options and the defaults told here are not the real ones.
// Scripts compare this text.
constexpr const char *Usage = "Usage: lodestard [options]\n"
                              "Options:\n"
                              "-l  || --logtofile    : Create a logfile (/home/$USER/lodestard.log)\n"
                              "-nl || --no-logtofile : Don't create a logfile (default)\n"
                              "-v  || --verbose      : Display a lot of debug messages (default)\n"
                              "-nv || --no-verbose   : Don't display any debug messages\n"
                              "-w  || --warning      : Display warning messages (default)\n"
                              "-nw || --no-warning   : Don't display warning messages\n"
                              "-d  || --daemon       : Execute as a daemon process\n";

} // namespace

std::optional<LogFlags> parseArguments(std::span<const char *const> arguments)
{
    LogFlags flags;
    for (const std::string_view argument : arguments) {
        const auto option = std::ranges::find_if(Options, [argument](const Option &candidate) {
            return argument == candidate.shortForm || argument == candidate.longForm;
        });
        if (option == std::end(Options))
            return std::nullopt;
        option->apply(flags);
    }
    return flags;
}

void printUsage(std::FILE *out)
{
    std::fputs(Usage, out);
}
