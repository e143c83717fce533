#include "ServeCommand.h"

#include "ConnectionGate.h"
#include "EventLog.h"
#include "PublishPump.h"
#include "RootFolder.h"
#include "Sandbox.h"
#include "ServeEvents.h"
#include "ServeHost.h"
#include "ServeTransfers.h"
#include "ServerRun.h"
#include "ServiceNotice.h"
#include "Signals.h"
#include "TempFile.h"
#include "Text.h"

int RunServe(const COptions& options, COutput& output)
{
    CRootFolder root;
    std::string strReason;
    if (!root.Open(options.m_strRoot, strReason))
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
    const CServiceNotice notice;
    const CSignals signals;
    output.EndWithReader();
    const CQueuedOutput queued(output, signals,
                               [&log](Orb_U64 ullLines) { return log.GapLine(ullLines); });
    CServeEvents events(log);
    CServeQuota quota(options.m_ullMaxFile, options.m_ullMaxTotal);
    CServeTransfers transfers(events, quota);
    // All that the process needs is open by now; threads that begin later are confined with it.
    const bool bSandbox = ConfineTo(root.Root(), options.m_bReadOnly);
    signals.ForceWhenStuck();
    if (!options.m_bReadOnly)
    {
        // What runs left behind that were killed.
        root.ForEachFile([](const CDescriptor& folder, const std::string& strName)
                         { RemoveDeadTemp(folder.Get(), strName); });
    }
    quota.Count(root);
    CServeHost host(root, events, transfers, options.m_bReadOnly);
    CConnectionGate gate(options.m_admission, events);
    CServerRun server(host, output);
    gate.Guard(server.Server());
    transfers.SetServer(server.Server());
    if (!server.Start(options.m_wPort))
    {
        return EXIT_NOT_CONNECTED;
    }
    pump.TellSources();
    const CServeEvents::CServed served{root.Path(), options.m_bReadOnly, bSandbox};
    events.Listening(server.Port(), &served, pump.Channels());
    notice.Ready("Serving " + QuoteText(root.Path()) + " on port " + std::to_string(server.Port()));
    pump.RunUntilSignal(server.Server(), signals);
    signals.ForceOnNext([] {});
    notice.Stopping();
    server.End();
    gate.Summarize();
    transfers.EndAll();
    pump.Summarize();
    events.Stopped();
    return pump.HasFailed() ? EXIT_FILE_FAILED : EXIT_DONE;
}
