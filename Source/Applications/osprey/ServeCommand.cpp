#include "ServeCommand.h"

#include "EventLog.h"
#include "PublishPump.h"
#include "RootMap.h"
#include "ServeEvents.h"
#include "ServeHost.h"
#include "ServeTransfers.h"
#include "ServerRun.h"
#include "Signals.h"
#include "Text.h"

int RunServe(const COptions& options, COutput& output)
{
    CRootMap map;
    std::string strReason;
    if (!map.Open(options.m_strRoot, strReason))
    {
        output.Error("cannot serve " + QuoteText(options.m_strRoot) + ": " + strReason);
        return EXIT_USAGE;
    }
    CEventLog log(output, EventStyle(options));
    CPublishLog publishLog(log, output, false);
    CPublishPump pump(publishLog);
    const int nOpened = pump.Open(options);
    if (nOpened != EXIT_DONE)
    {
        return nOpened;
    }
    const CSignals signals;
    signals.ForceWhenStuck();
    output.EndWithReader();
    CServeEvents events(log);
    CServeTransfers transfers(events, map.Root());
    CServeHost host(map, events, transfers, options.m_bReadOnly);
    CServerRun server(host, output);
    if (!server.Start(options.m_wPort))
    {
        return EXIT_NOT_CONNECTED;
    }
    pump.TellSources();
    events.Listening(server.Port(), map.Root(), options.m_bReadOnly, pump.Channels());
    pump.RunUntilSignal(server.Server(), signals);
    signals.ForceOnNext([] {});
    server.End();
    transfers.EndAll();
    pump.Summarize();
    events.Stopped();
    return pump.HasFailed() ? EXIT_FILE_FAILED : EXIT_DONE;
}
