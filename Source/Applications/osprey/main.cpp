#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "CommandLine.h"
#include "DownloadCommand.h"
#include "JsonLine.h"
#include "LibOsprey.h"
#include "Output.h"
#include "PublishCommand.h"
#include "ServeCommand.h"
#include "SubmitCommand.h"
#include "SubscribeCommand.h"
#include "WatchCommand.h"

namespace
{

int RunVersion(const COptions& options, COutput& output)
{
    const std::string strVersion = OrbComponent::GetVerisonString();
    output.Line(options.m_bJson ? CJsonLine("version").Text("version", strVersion).ToString()
                                : "osprey " + strVersion);
    return EXIT_DONE;
}

int RunCommand(const COptions& options, COutput& output)
{
    if (!options.m_strTrace.empty())
    {
        if (!COutput::TraceTo(options.m_strTrace))
        {
            output.Error("cannot write " + options.m_strTrace + ": " + strerror(errno));
            return EXIT_USAGE;
        }
        // Lines reach the file as they come, also when the tool is killed.
        setvbuf(stdout, nullptr, _IOLBF, 0);
    }
    switch (options.m_eCommand)
    {
        case COMMAND_SERVE:
            return RunServe(options, output);
        case COMMAND_SUBMIT:
            return RunSubmit(options, output);
        case COMMAND_DOWNLOAD:
            return RunDownload(options, output);
        case COMMAND_WATCH:
            return RunWatch(options, output);
        case COMMAND_PUBLISH:
            return RunPublish(options, output);
        case COMMAND_SUBSCRIBE:
            return RunSubscribe(options, output);
        default:
            return RunVersion(options, output);
    }
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    // The logging library must not complain about a configuration that nobody asked for.
    setenv("LOG4CPLUS_LOGLOG_QUIETMODE", "1", 0);
    COutput output;
    output.TakeStandardOutput();
    try
    {
        COptions options;
        const CParsed parsed = ParseCommandLine(nArguments, ppszArguments, options);
        if (parsed.m_bRun)
        {
            return RunCommand(options, output);
        }
        output.Write(parsed.m_strOutput);
        if (!parsed.m_strError.empty())
        {
            output.Error(parsed.m_strError);
        }
        return parsed.m_nExitCode;
    }
    catch (const std::exception& error)
    {
        output.Error(error.what());
        return EXIT_FILE_FAILED;
    }
}
