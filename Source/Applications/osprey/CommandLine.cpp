#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "ChannelOptions.h"
#include "ClientOptions.h"
#include "CommandOptions.h"
#include "Completion.h"
#include "ServeOptions.h"
#include "Settings.h"
#include "Text.h"

namespace
{

const unsigned int LONGEST_SECONDS = 86400;

const char COMMANDS[] = "serve, submit, download, watch, publish, subscribe or version";

const char EXIT_CODES[] =
    "Exit codes:\n"
    "  0    all done\n"
    "  1    a file, a source or a sink failed; each is named on standard error\n"
    "  2    wrong usage\n"
    "  3    could not connect; serve, publish: could not listen\n"
    "  4    connection lost\n"
    "  24   --verify: a file has another SHA-256 sum, or none is known\n"
    "  30   --timeout: the time was over before the end\n"
    "  130  interrupted; serve, watch, publish and subscribe then end with 0\n"
    "Of several the first counts: 2, 130, 30, 3, 24, 4, 1.\n";

const char MAIN_EXAMPLES[] =
    "Examples:\n"
    "  osprey serve --root /srv/files\n"
    "  osprey submit 192.168.0.7 photos notes.txt\n"
    "  osprey download 192.168.0.7 photos/a.jpg -o /tmp\n"
    "  osprey watch outbox 192.168.0.7\n"
    "  osprey publish --channel 1=udp:5000\n"
    "  osprey subscribe 192.168.0.7 --channel 1\n"
    "\n"
    "\"osprey COMMAND --help\" tells more about a command.\n"
    "\n";

const char SERVE_NOTES[] =
    "Listens on all IPv4 interfaces. Peers name files below DIR; nothing they send\n"
    "reaches outside it. Only regular files and folders are served; symbolic links\n"
    "are not followed, wherever they lead. A file that arrives gets its name when it\n"
    "is whole; what arrived of an interrupted one is kept as NAME.osprey-partial.\n"
    "Ctrl-C ends the server, also with connections open; a second one at once.\n"
    "\n"
    "Examples:\n"
    "  osprey serve --root /srv/files\n"
    "  osprey serve --root . --port 9000 --read-only --json\n"
    "  osprey serve --root . --max-file 100M --max-total 10G --allow 192.168.0.0/16\n"
    "  osprey serve --root . --channel 1=udp:5000\n";

void AddServe(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pServe = app.add_subcommand("serve", "Serve a folder to peers");
    pServe->add_option("--root", options.m_strRoot, "The folder to serve")
        ->type_name("DIR")
        ->required();
    AddPort(*pServe, raw);
    pServe->add_flag("--read-only", options.m_bReadOnly,
                     "Refuse uploads, new folders and deletions");
    AddQuotas(*pServe, raw);
    AddAdmission(*pServe, options, raw);
    AddSources(*pServe, options, raw);
    AddCommon(*pServe, options);
    pServe->footer(SERVE_NOTES + ("\n" + HelpEnd("serve")));
    pServe->callback([&options] { options.m_eCommand = COMMAND_SERVE; });
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
            return CheckPort(options, raw, strReason) && CheckSources(options, raw, strReason) &&
                   CheckLimits(options, raw, strReason);
        case COMMAND_SUBMIT:
        case COMMAND_DOWNLOAD:
        case COMMAND_WATCH:
            return CheckPeer(options, raw, strReason) && CheckClient(options, strReason);
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

// The parser would take the next argument for the value. Empty when all options have one.
std::string OptionWithoutValue(const std::vector<std::string>& listArguments)
{
    for (const std::string& strArgument : listArguments)
    {
        if (strArgument == "--")
        {
            break;
        }
        if (strArgument.compare(0, 2, "--") == 0 && strArgument.back() == '=')
        {
            return strArgument.substr(0, strArgument.size() - 1);
        }
    }
    return std::string();
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
    pVersion->footer("Manual: man osprey\n");
    pVersion->callback([&options] { options.m_eCommand = COMMAND_VERSION; });
}

// For the shells, not for a person: left out of the list of commands.
void AddCompletion(CLI::App& app, CRaw& raw)
{
    CLI::App* pCompletion = app.add_subcommand("completion", "Print completions for a shell");
    pCompletion->add_option("SHELL", raw.m_strShell, "bash, zsh or fish")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}).description(""));
}

void Define(CLI::App& app, COptions& options, CRaw& raw)
{
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.require_subcommand(1);
    app.footer(MAIN_EXAMPLES + HelpEnd(""));
    AddServe(app, options, raw);
    AddSubmit(app, options, raw);
    AddDownload(app, options, raw);
    AddWatch(app, options, raw);
    AddPublish(app, options, raw);
    AddSubscribe(app, options, raw);
    AddVersion(app, options);
    for (CLI::App* pCommand : app.get_subcommands(nullptr))
    {
        pCommand->group("Commands");
    }
    AddCompletion(app, raw);
    app.get_subcommand("completion")->group("");
}

const char ABOUT[] = "Moves files and live channels between this machine and a server.";

// What the command line leaves open is looked up with a parser that nobody uses afterwards.
bool Complete(std::vector<std::string>& listArguments, std::string& strReason)
{
    COptions options;
    CRaw raw;
    CLI::App app(ABOUT, "osprey");
    Define(app, options, raw);
    return AddSettings(app, listArguments, strReason);
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
    command.add_option("--config", options.m_strConfig, "Read more options from FILE")
        ->type_name("FILE");
}

// The end of the help of a command; empty: of the tool.
std::string HelpEnd(const std::string& strCommand)
{
    return EXIT_CODES + ("\nManual: man osprey" + (strCommand.empty() ? "" : "-" + strCommand)) +
           "\n";
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
    CLI::App app(ABOUT, "osprey");
    Define(app, options, raw);
    const std::string strCommand = NamedCommand(app, nArguments, ppszArguments);
    std::vector<std::string> listArguments(ppszArguments + (nArguments > 0 ? 1 : 0),
                                           ppszArguments + nArguments);
    CParsed parsed;
    const std::string strEmpty = OptionWithoutValue(listArguments);
    if (!strEmpty.empty())
    {
        return UsageError(strEmpty + " has no value", strCommand);
    }
    std::string strReason;
    if (!Complete(listArguments, strReason))
    {
        return UsageError(strReason, strCommand);
    }
    try
    {
        std::reverse(listArguments.begin(), listArguments.end());
        app.parse(std::move(listArguments));
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
    if (!raw.m_strShell.empty())
    {
        parsed.m_strOutput = Completion(app, raw.m_strShell);
        return parsed;
    }
    if (!Check(options, raw, strReason))
    {
        return UsageError(strReason, strCommand);
    }
    parsed.m_bRun = true;
    return parsed;
}
