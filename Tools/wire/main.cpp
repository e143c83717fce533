// wire: joins two network namespaces with a cable that delays, loses, reorders, duplicates and
// corrupts packets, and that can be cut.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "Commands.h"
#include "Wire.h"

namespace
{

const int WRONG_USAGE = 2;
const int REFUSED = 3;

const char* const FOOTER =
    "Commands, a line each on standard input, answered by a line each on standard output:\n"
    "  cut [SECONDS]   nothing passes, for so long or until join; what is under way is lost\n"
    "  join            ends the cut\n"
    "  delay MS, jitter MS, loss %, reorder %, reorder-by MS, duplicate %, corrupt %,\n"
    "  rate KBIT, queue MS\n"
    "                  as the options, for the packets that follow\n"
    "  counters        prints what became of the packets so far\n"
    "  quit            ends, as SIGINT and SIGTERM do\n"
    "The counters are printed at the end. Exit code: 0; 2 wrong usage; 3 the machine refuses a\n"
    "device or a namespace.\n"
    "\n"
    "  ip netns add a && ip netns add b\n"
    "  wire --near /run/netns/a --far /run/netns/b --delay 50 --loss 1 --cut 10:2.5\n"
    "  ip netns exec a ping 10.77.0.2";

void AddLinkOptions(CLI::App& app, CLinkSettings& settings)
{
    const CLI::Range percent(0.0, 100.0);
    const auto fnAdd = [&app](const char* pszName, double& dValue, const char* pszText)
    { return app.add_option(pszName, dValue, pszText)->capture_default_str(); };
    const CLI::Range time(0.0, 86400000.0);
    fnAdd("--delay", settings.m_dDelayMs, "milliseconds that every packet takes, one way")
        ->check(time);
    fnAdd("--jitter", settings.m_dJitterMs, "up to so many more, by chance; order is kept")
        ->check(time);
    fnAdd("--loss", settings.m_dLoss, "percent of the packets that vanish")->check(percent);
    fnAdd("--reorder", settings.m_dReorder, "percent that are held back and overtaken")
        ->check(percent);
    fnAdd("--reorder-by", settings.m_dReorderMs, "milliseconds that those are held back")
        ->check(time);
    fnAdd("--duplicate", settings.m_dDuplicate, "percent that arrive twice")->check(percent);
    fnAdd("--corrupt", settings.m_dCorrupt, "percent that arrive with one bit flipped")
        ->check(percent);
    fnAdd("--rate", settings.m_dRateKbit, "1,000 bits a second, each way; 0: no limit")
        ->check(CLI::Range(0.0, 1e8));
    fnAdd("--queue", settings.m_dQueueMs, "at a rate: longest wait for a turn, milliseconds")
        ->check(time);
}

void AddOptions(CLI::App& app, CWireOptions& options)
{
    app.add_option("--near", options.m_strNear, "one namespace: /run/netns/NAME, /proc/PID/ns/net")
        ->required();
    app.add_option("--far", options.m_strFar, "the other namespace")->required();
    app.add_option("--near-address", options.m_strNearAddress, "address of the device there")
        ->capture_default_str();
    app.add_option("--far-address", options.m_strFarAddress, "address of the device there")
        ->capture_default_str();
    AddLinkOptions(app, options.m_settings);
    app.add_option("--cut", options.m_cuts,
                   "FROM[:SECONDS] after the start: nothing passes, for so long or for good; "
                   "may be given more than once")
        ->check([](const std::string& strText)
                { return IsCutText(strText) ? std::string() : strText + " is no FROM[:SECONDS]"; });
    app.add_option("--seed", options.m_ullSeed, "the same seed, the same fate of the n-th packet")
        ->capture_default_str();
    app.add_flag("--end-with-input", options.m_bEndWithInput, "end when standard input ends");
}

int Run(int nArguments, char** ppszArguments)
{
    CWireOptions options;
    CLI::App app("Joins two network namespaces with a cable whose faults are chosen.", "wire");
    app.footer(FOOTER);
    AddOptions(app, options);
    try
    {
        app.parse(nArguments, ppszArguments);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : WRONG_USAGE;
    }
    CWire wire(options);
    wire.Run();
    wire.PrintCounters();
    return 0;
}

}  // namespace

int main(int nArguments, char** ppszArguments)
{
    try
    {
        return Run(nArguments, ppszArguments);
    }
    catch (const std::exception& error)
    {
        fprintf(stderr, "wire: %s\n", error.what());
        return REFUSED;
    }
}
