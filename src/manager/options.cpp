#include "manager/options.h"

#include <getopt.h>

namespace manager {

Options ParseOptions(int argc, char** argv)
{
    enum : int { kJournal = 'j', kUser = 'u', kRequireSampling = 'r', kHelp = 'h', kVersion = 'v' };
    static const option kOptions[] = {{"journal", required_argument, nullptr, kJournal},
                                      {"user", required_argument, nullptr, kUser},
                                      {"require-sampling", no_argument, nullptr, kRequireSampling},
                                      {"help", no_argument, nullptr, kHelp},
                                      {"version", no_argument, nullptr, kVersion},
                                      {nullptr, 0, nullptr, 0}};
    Options options;
    ::optind = 0;  // begin anew, also where a command line has been parsed before
    ::opterr = 0;
    for (int found; (found = ::getopt_long(argc, argv, ":", kOptions, nullptr)) != -1;) {
        switch (found) {
        case kJournal:
            options.journal = ::optarg;
            break;
        case kUser:
            options.user = ::optarg;
            break;
        case kRequireSampling:
            options.requireSampling = true;
            break;
        case kHelp:
            options.help = true;
            break;
        case kVersion:
            options.version = true;
            break;
        case ':':
            throw UsageError(std::string("option ") + argv[::optind - 1] + " needs a value");
        default:
            throw UsageError(std::string("no such option: ") + argv[::optind - 1]);
        }
    }
    if (::optind < argc) throw UsageError(std::string("unexpected argument: ") + argv[::optind]);
    return options;
}

std::string VersionText() { return "sflow-mgr " SFLOW_VERSION "\n"; }

std::string UsageText()
{
    return "usage: sflow-mgr [--journal FILE] [--user NAME] [--require-sampling]\n"
           "       sflow-mgr --help | --version\n"
           "\n"
           "The sFlow manager: keeps the collectors, interfaces and attachments that the\n"
           "configuration daemon tells it of, and shows them in the switch's state.\n"
           "\n"
           "  --journal FILE       append each operation received to FILE, one JSON object a line\n"
           "  --user NAME          become this user once the sockets and the journal are open\n"
           "  --require-sampling   refuse to start where packets can't be sampled\n"
           "  --help, --version    say so, and end\n"
           "\n"
           "environment:\n"
           "  SFLOW_RUN_DIR        directory of manager.sock and cdb.sock (/run/sflow-switch)\n"
           "  SFLOW_LOG            log file, or - for standard error (-)\n"
           "  SFLOW_LOG_LEVEL      lowest level written: 10 debug, 11 info, 12 notice, 13 error (12)\n";
}

}  // namespace manager
