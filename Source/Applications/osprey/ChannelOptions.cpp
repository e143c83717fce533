#include "ChannelOptions.h"

#include <algorithm>

#include "PacketCutter.h"
#include "ServeOptions.h"
#include "Text.h"

namespace
{

const unsigned int FASTEST_RATE = 10000000;

const char PUBLISH_NOTES[] =
    "SOURCE is one of\n"
    "  udp:[ADDR:]PORT  a packet for every datagram of at most 1500 bytes; ADDR is\n"
    "                   [127.0.0.1], and %INTERFACE may follow a multicast group;\n"
    "                   @FROM at the end takes datagrams of that sender only\n"
    "  -                standard input\n"
    "  FILE             a file or a FIFO, to its end\n"
    "A channel keeps its newest 2048 packets; who reads more slowly loses the older\n"
    "ones, so files and standard input go at 5000 packets a second, or at --rate.\n"
    "Readers look for packets every 100 to 200 ms; with --live they get each at once.\n"
    "Requests for files are refused. Ends when every source has ended; Ctrl-C ends it\n"
    "before, with code 0.\n"
    "\n"
    "Examples:\n"
    "  osprey publish --channel 1=udp:5000 --channel 2=udp:239.1.1.1:5000%eth0\n"
    "  osprey publish --channel 1=film.ts --rate 950 --wait\n"
    "  tail -f log | osprey publish --channel 7=- --lines\n";

const char SUBSCRIBE_NOTES[] =
    "HOST is a name or an IPv4 address. SINK is one of\n"
    "  stats            packets and bytes a second, and gaps in MPEG-TS or RTP: the\n"
    "                   sink when none is given\n"
    "  hex              every packet for people to read\n"
    "  udp:[ADDR:]PORT  a datagram for every packet; ADDR is [127.0.0.1], and\n"
    "                   %INTERFACE may follow a multicast group\n"
    "  -                the bytes to standard output; the tool's lines then go to\n"
    "                   standard error\n"
    "  FILE             the bytes to a file, which is emptied first, or a FIFO\n"
    "A channel may have several sinks. When 16 MiB wait for a slow sink, further\n"
    "packets for it are dropped and counted. A lost connection is tried again every\n"
    "second. Ctrl-C ends it, with code 0; a second one does not wait for the sinks.\n"
    "\n"
    "Examples:\n"
    "  osprey subscribe 192.168.0.7 --channel 1 --channel 2\n"
    "  osprey subscribe camera-3 --channel 1=film.ts --channel 1=udp:5004 --for 60\n"
    "  osprey subscribe camera-3:9000 --channel 7=- | grep error\n";

CLI::Option* AddChannels(CLI::App& command, CRaw& raw, const char* pszValue, const char* pszHelp)
{
    return command.add_option("-c,--channel", raw.m_listChannels, pszHelp)
        ->type_name(pszValue)
        ->allow_extra_args(false);
}

std::string Fault(const std::string& strText, const std::string& strReason)
{
    return "--channel " + QuoteText(strText) + ": " + strReason;
}

// What a sink writes to is written by no other.
bool IsSameTarget(const CSinkSpec& one, const CSinkSpec& other)
{
    if (one.m_eKind != other.m_eKind)
    {
        return false;
    }
    switch (one.m_eKind)
    {
        case SINK_OUTPUT:
            return true;
        case SINK_FILE:
            return one.m_strPath == other.m_strPath;
        case SINK_UDP:
            return one.m_dwChannel == other.m_dwChannel &&
                   one.m_udp.ToString() == other.m_udp.ToString();
        default:
            return one.m_dwChannel == other.m_dwChannel;
    }
}

// The channels of sinks, each once.
size_t CountChannels(const std::vector<CSinkSpec>& listSinks)
{
    std::vector<Orb_U32> listChannels;
    listChannels.reserve(listSinks.size());
    for (const CSinkSpec& sink : listSinks)
    {
        listChannels.push_back(sink.m_dwChannel);
    }
    std::sort(listChannels.begin(), listChannels.end());
    return static_cast<size_t>(std::unique(listChannels.begin(), listChannels.end()) -
                               listChannels.begin());
}

}  // namespace

CLI::Option* AddSources(CLI::App& command, COptions& options, CRaw& raw)
{
    CStreamOptions& stream = options.m_stream;
    CLI::Option* pChannel = AddChannels(command, raw, "N=SOURCE", "Publish SOURCE as channel N");
    CLI::Option* pSize = command
                             .add_option("--packet-size", stream.m_nPacketSize,
                                         "Cut files and standard input into such [1316]")
                             ->type_name("BYTES")
                             ->check(CLI::Range(size_t{1}, MAX_PACKET_SIZE).description(""));
    CLI::Option* pLines =
        command.add_flag("--lines", stream.m_bLines, "Cut them into lines instead");
    CLI::Option* pRate =
        command
            .add_option("--rate", stream.m_dwRate, "Packets a second, each [5000]; 0: as they come")
            ->type_name("PACKETS")
            ->check(CLI::Range(0U, FASTEST_RATE).description(""));
    CLI::Option* pWait = command.add_flag("--wait", stream.m_bWait,
                                          "Hold them while nobody has opened their channel");
    CLI::Option* pLive = command.add_flag("--live", stream.m_bLive,
                                          "Send each packet at once, at more processor time");
    for (CLI::Option* pOption : {pSize, pLines, pRate, pWait, pLive})
    {
        pOption->each([&raw](const std::string&) { raw.m_bStream = true; });
    }
    return pChannel;
}

void AddPublish(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pPublish = app.add_subcommand("publish", "Send live packets to whoever subscribes");
    AddPort(*pPublish, raw);
    AddSources(*pPublish, options, raw)->required();
    AddAdmission(*pPublish, options, raw);
    pPublish
        ->add_option("--linger", options.m_dwLingerSeconds,
                     "Time for readers to take the last packets [1]")
        ->type_name("SECONDS")
        ->check(Seconds(0));
    AddCommon(*pPublish, options);
    pPublish->footer(PUBLISH_NOTES + ("\n" + HelpEnd("publish")));
    pPublish->callback([&options] { options.m_eCommand = COMMAND_PUBLISH; });
}

void AddSubscribe(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pSubscribe = app.add_subcommand("subscribe", "Take live packets from a server");
    AddPeer(*pSubscribe, raw);
    AddChannels(*pSubscribe, raw, "N[=SINK]", "Take channel N to SINK; up to 10 channels")
        ->required();
    pSubscribe->add_option("--count", options.m_ullCount, "End after so many packets")
        ->type_name("PACKETS")
        ->check(CLI::Range(Orb_U64{1}, ~Orb_U64{0}).description(""));
    pSubscribe->add_option("--for", options.m_dwForSeconds, "End after this time")
        ->type_name("SECONDS")
        ->check(Seconds(1));
    AddConnectTimeout(*pSubscribe, options);
    AddCommon(*pSubscribe, options);
    pSubscribe->footer(SUBSCRIBE_NOTES + ("\n" + HelpEnd("subscribe")));
    pSubscribe->callback([&options] { options.m_eCommand = COMMAND_SUBSCRIBE; });
}

bool CheckSources(COptions& options, const CRaw& raw, std::string& strReason)
{
    if (options.m_stream.m_bLines && options.m_stream.m_nPacketSize != 0)
    {
        strReason = "--lines and --packet-size exclude each other";
        return false;
    }
    if (raw.m_bStream && raw.m_listChannels.empty())
    {
        strReason = "--packet-size, --lines, --rate, --wait and --live need --channel";
        return false;
    }
    for (const std::string& strText : raw.m_listChannels)
    {
        CSourceSpec spec;
        if (!ParseSource(strText, spec, strReason))
        {
            strReason = Fault(strText, strReason);
            return false;
        }
        for (const CSourceSpec& other : options.m_listSources)
        {
            if (other.m_dwChannel == spec.m_dwChannel)
            {
                strReason = Fault(strText, "the channel has a source already");
                return false;
            }
            if (spec.m_eKind == SOURCE_INPUT && other.m_eKind == SOURCE_INPUT)
            {
                strReason = Fault(strText, "standard input is a source already");
                return false;
            }
        }
        options.m_listSources.push_back(spec);
    }
    return true;
}

bool CheckSinks(COptions& options, const CRaw& raw, std::string& strReason)
{
    for (const std::string& strText : raw.m_listChannels)
    {
        CSinkSpec spec;
        if (!ParseSink(strText, spec, strReason))
        {
            strReason = Fault(strText, strReason);
            return false;
        }
        for (const CSinkSpec& other : options.m_listSinks)
        {
            if (IsSameTarget(spec, other))
            {
                strReason = Fault(strText, spec.Shown() + " is a sink already");
                return false;
            }
        }
        options.m_listSinks.push_back(spec);
    }
    if (CountChannels(options.m_listSinks) > OSPREY_MAX_CHANNELS)
    {
        strReason = "--channel: at most " + std::to_string(OSPREY_MAX_CHANNELS) + " channels";
        return false;
    }
    return true;
}
