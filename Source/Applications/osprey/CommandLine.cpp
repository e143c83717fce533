#include "CommandLine.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "ChannelOptions.h"
#include "CommandOptions.h"
#include "Text.h"

namespace
{

const size_t LONGEST_CONNECTION_NAME = 259;  // UTF-16 units
const unsigned int LONGEST_SECONDS = 86400;
const unsigned int MOST_JOBS = 64;

const char COMMANDS[] = "serve, submit, download, publish, subscribe or version";

const char EXIT_CODES[] =
    "Exit codes:\n"
    "  0    all done\n"
    "  1    a file, a source or a sink failed; each is named on standard error\n"
    "  2    wrong usage\n"
    "  3    could not connect (serve, publish: could not listen)\n"
    "  4    connection lost\n"
    "  130  interrupted\n";

const char MAIN_EXAMPLES[] =
    "Examples:\n"
    "  osprey serve --root /srv/files\n"
    "  osprey submit 192.168.0.7 photos notes.txt\n"
    "  osprey download 192.168.0.7 photos/a.jpg -o /tmp\n"
    "  osprey publish --channel 1=udp:5000\n"
    "  osprey subscribe 192.168.0.7 --channel 1\n"
    "\n"
    "\"osprey COMMAND --help\" tells more about a command.\n"
    "\n";

const char SERVE_NOTES[] =
    "Listens on all IPv4 interfaces. Peers name files below DIR; nothing they send\n"
    "reaches outside it. A file that arrives gets its name when it is whole; what\n"
    "arrived of an interrupted one is kept as NAME.osprey-partial. Ctrl-C ends the\n"
    "server, also with connections open; a second Ctrl-C ends it at once.\n"
    "\n"
    "Examples:\n"
    "  osprey serve --root /srv/files\n"
    "  osprey serve --root . --port 9000 --read-only --json\n"
    "  osprey serve --root . --channel 1=udp:5000\n";

const char SUBMIT_NOTES[] =
    "HOST is a name or an IPv4 address. A folder is sent with all that is in it,\n"
    "under its own name: \"submit HOST a/b\" arrives as b, b/c, b/d. Links to files are\n"
    "sent as files; inside a folder, links to folders, devices, FIFOs and sockets are\n"
    "left out with a warning. A file that arrives replaces one of the same name.\n"
    "With --jobs each connection moves one file at a time; folders are all made\n"
    "before. One that is lost fails its file, and the others go on.\n"
    "\n"
    "Examples:\n"
    "  osprey submit 192.168.0.7 photos notes.txt\n"
    "  osprey submit 192.168.0.7 photos --jobs 8\n"
    "  osprey submit camera-3:9000 firmware.bin --to incoming/today\n";

const char DOWNLOAD_NOTES[] =
    "HOST is a name or an IPv4 address. A file is written to DIR under the last part\n"
    "of its name. It appears when it is whole; until then, and after any failure, a\n"
    "file that was there before stays as it was. With --jobs each connection moves\n"
    "one file at a time; one that is lost fails its file, and the others go on.\n"
    "\n"
    "Examples:\n"
    "  osprey download 192.168.0.7 photos/a.jpg photos/b.jpg\n"
    "  osprey download camera-3:9000 log/today.txt -o /tmp\n";

void AddServe(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pServe = app.add_subcommand("serve", "Serve a folder to peers");
    pServe->add_option("--root", options.m_strRoot, "The folder to serve")
        ->type_name("DIR")
        ->required();
    AddPort(*pServe, raw);
    pServe->add_flag("--read-only", options.m_bReadOnly,
                     "Refuse uploads, new folders and deletions");
    AddSources(*pServe, options, raw);
    AddCommon(*pServe, options);
    pServe->footer(SERVE_NOTES + ("\n" + ExitCodes()));
    pServe->callback([&options] { options.m_eCommand = COMMAND_SERVE; });
}

void AddClient(CLI::App& command, COptions& options)
{
    command
        .add_option("-j,--jobs", options.m_dwJobs,
                    "Use so many connections side by side, 1 to 64 [1]")
        ->type_name("N")
        ->check(CLI::Range(1U, MOST_JOBS).description(""));
    command
        .add_option("--name", options.m_strConnection,
                    "Name in the server's log [host name-process id]")
        ->type_name("NAME");
    AddConnectTimeout(command, options);
    command
        .add_option("--stall-timeout", options.m_dwStallSeconds,
                    "Give up when nothing moves so long [60]; 0: never")
        ->type_name("SECONDS")
        ->check(Seconds(0));
    AddCommon(command, options);
}

void AddSubmit(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pSubmit = app.add_subcommand("submit", "Send files and folders to a server");
    AddPeer(*pSubmit, raw);
    pSubmit->add_option("PATH", options.m_listNames, "Files and folders to send")
        ->type_name("")
        ->required();
    pSubmit->add_option("--to", options.m_strTo, "Folder at the server to send to [the served one]")
        ->type_name("NAME");
    AddClient(*pSubmit, options);
    pSubmit->footer(SUBMIT_NOTES + ("\n" + ExitCodes()));
    pSubmit->callback([&options] { options.m_eCommand = COMMAND_SUBMIT; });
}

void AddDownload(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pDownload = app.add_subcommand("download", "Fetch files from a server");
    AddPeer(*pDownload, raw);
    pDownload->add_option("NAME", options.m_listNames, "Files at the server, as in photos/a.jpg")
        ->type_name("")
        ->required();
    pDownload
        ->add_option("-o,--output", options.m_strFolder,
                     "Folder for the files, created when missing [.]")
        ->type_name("DIR");
    AddClient(*pDownload, options);
    pDownload->footer(DOWNLOAD_NOTES + ("\n" + ExitCodes()));
    pDownload->callback([&options] { options.m_eCommand = COMMAND_DOWNLOAD; });
}

std::string DefaultConnectionName()
{
    char szHost[256] = "";
    gethostname(szHost, sizeof szHost - 1);
    std::string strName = szHost;
    if (strName.empty() || !IsValidUTF8(strName))
    {
        strName = "osprey";
    }
    return strName.substr(0, 200) + "-" + std::to_string(getpid());
}

// False with a reason when a value cannot be used.
bool CheckRemoteRoot(COptions& options, std::string& strReason)
{
    std::string& strTo = options.m_strTo;
    while (strTo.size() > 1 && (strTo.back() == '/' || strTo.back() == '\\'))
    {
        strTo.pop_back();
    }
    if (!IsValidUTF8(strTo) || strTo.find('|') != std::string::npos)
    {
        strReason = "--to: the name must be UTF-8 text without \"|\"";
        return false;
    }
    return true;
}

bool CheckConnectionName(COptions& options, std::string& strReason)
{
    if (options.m_strConnection.empty())
    {
        options.m_strConnection = DefaultConnectionName();
    }
    std::vector<unsigned short> listUnits;
    if (!ToUTF16(options.m_strConnection, listUnits) ||
        listUnits.size() - 1 > LONGEST_CONNECTION_NAME)
    {
        strReason = "--name: the name must be UTF-8 text of at most 259 units";
        return false;
    }
    return true;
}

bool CheckPeer(COptions& options, const CRaw& raw, std::string& strReason)
{
    if (!ParsePeer(raw.m_strPeer, options.m_peer, strReason))
    {
        strReason = "HOST " + QuoteText(raw.m_strPeer) + ": " + strReason;
        return false;
    }
    return true;
}

bool CheckPort(COptions& options, const CRaw& raw, std::string& strReason)
{
    if (!raw.m_strPort.empty() && !ParsePort(raw.m_strPort, 0, options.m_wPort))
    {
        strReason = "--port: not a number from 0 to 65535: " + QuoteText(raw.m_strPort);
        return false;
    }
    return true;
}

bool Check(COptions& options, const CRaw& raw, std::string& strReason)
{
    switch (options.m_eCommand)
    {
        case COMMAND_SERVE:
        case COMMAND_PUBLISH:
            return CheckPort(options, raw, strReason) && CheckSources(options, raw, strReason);
        case COMMAND_SUBMIT:
        case COMMAND_DOWNLOAD:
            return CheckPeer(options, raw, strReason) && CheckRemoteRoot(options, strReason) &&
                   CheckConnectionName(options, strReason);
        case COMMAND_SUBSCRIBE:
            return CheckPeer(options, raw, strReason) && CheckSinks(options, raw, strReason);
        default:
            return true;
    }
}

// The command that the arguments name, with a blank, for a hint; empty when they name none.
std::string NamedCommand(const CLI::App& app, int nArguments, const char* const* ppszArguments)
{
    for (const CLI::App* pCommand : app.get_subcommands(nullptr))
    {
        if (nArguments > 1 && pCommand->get_name() == ppszArguments[1])
        {
            return pCommand->get_name() + " ";
        }
    }
    return std::string();
}

CParsed UsageError(const std::string& strReason, const std::string& strCommand)
{
    CParsed parsed;
    parsed.m_nExitCode = EXIT_USAGE;
    parsed.m_strError = strReason + " (\"osprey " + strCommand + "--help\" tells more)";
    return parsed;
}

// The parser tells of a missing command also when there is one that it does not know.
std::string CommandFault(int nArguments, const char* const* ppszArguments)
{
    if (nArguments < 2)
    {
        return "a command is needed: " + std::string(COMMANDS);
    }
    if (*ppszArguments[1] == '-')
    {
        return "the command comes first: " + std::string(COMMANDS);
    }
    return "there is no command " + QuoteText(ppszArguments[1]);
}

void AddVersion(CLI::App& app, COptions& options)
{
    CLI::App* pVersion = app.add_subcommand("version", "Print the version");
    pVersion->add_flag("--json", options.m_bJson, "Print a JSON object");
    pVersion->callback([&options] { options.m_eCommand = COMMAND_VERSION; });
}

}  // namespace

// A number of seconds from a lowest one on; the help text says so in words.
CLI::Validator Seconds(unsigned int dwLowest)
{
    return CLI::Range(dwLowest, LONGEST_SECONDS).description("");
}

void AddCommon(CLI::App& command, COptions& options)
{
    command.add_flag("--json", options.m_bJson, "Print one JSON object a line");
    command.add_flag("-q,--quiet", options.m_bQuiet, "Print errors only");
    command
        .add_option("--trace", options.m_strTrace, "Append the library's own trace lines to FILE")
        ->type_name("FILE");
}

std::string ExitCodes()
{
    return EXIT_CODES;
}

void AddPort(CLI::App& command, CRaw& raw)
{
    command
        .add_option("-p,--port", raw.m_strPort,
                    "TCP port to listen on [" + std::to_string(OSPREY_DEFAULT_PORT) +
                        "]; 0 picks a free one")
        ->type_name("PORT");
}

void AddPeer(CLI::App& command, CRaw& raw)
{
    command
        .add_option(
            "HOST", raw.m_strPeer,
            "HOST[:PORT] of the server; the port [" + std::to_string(OSPREY_DEFAULT_PORT) + "]")
        ->type_name("")
        ->required();
}

void AddConnectTimeout(CLI::App& command, COptions& options)
{
    command
        .add_option("--connect-timeout", options.m_dwConnectSeconds,
                    "Give up connecting after this time [10]")
        ->type_name("SECONDS")
        ->check(Seconds(1));
}

CParsed ParseCommandLine(int nArguments, const char* const* ppszArguments, COptions& options)
{
    CRaw raw;
    CLI::App app("Moves files and live channels between this machine and a server.", "osprey");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.require_subcommand(1);
    app.footer(MAIN_EXAMPLES + ExitCodes());
    AddServe(app, options, raw);
    AddSubmit(app, options, raw);
    AddDownload(app, options, raw);
    AddPublish(app, options, raw);
    AddSubscribe(app, options, raw);
    AddVersion(app, options);
    for (CLI::App* pCommand : app.get_subcommands(nullptr))
    {
        pCommand->group("Commands");
    }
    const std::string strCommand = NamedCommand(app, nArguments, ppszArguments);
    CParsed parsed;
    try
    {
        app.parse(nArguments, ppszArguments);
    }
    catch (const CLI::ParseError& error)
    {
        if (error.get_exit_code() != 0)
        {
            return UsageError(
                strCommand.empty() ? CommandFault(nArguments, ppszArguments) : error.what(),
                strCommand);
        }
        std::ostringstream output;
        app.exit(error, output, output);
        parsed.m_strOutput = output.str();
        return parsed;
    }
    std::string strReason;
    if (!Check(options, raw, strReason))
    {
        return UsageError(strReason, strCommand);
    }
    parsed.m_bRun = true;
    return parsed;
}
