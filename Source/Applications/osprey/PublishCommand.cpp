#include "PublishCommand.h"

#include "ConnectionGate.h"
#include "EventLog.h"
#include "PublishPump.h"
#include "RefusingHost.h"
#include "ServeEvents.h"
#include "ServerRun.h"
#include "Signals.h"

int RunPublish(const COptions& options, COutput& output)
{
    CEventLog log(output, EventStyle(options));
    CPublishLog publishLog(log, output, true);
    CPublishPump pump(publishLog);
    const int nOpened = pump.Open(options);
    if (nOpened != EXIT_DONE)
    {
        return nOpened;
    }
    const CSignals signals;
    signals.ForceWhenStuck();
    output.EndWithReader();
    const CQueuedOutput queued(output, signals,
                               [&log](Orb_U64 ullLines) { return log.GapLine(ullLines); });
    CServeEvents events(log);
    CRefusingHost host(events);
    CConnectionGate gate(options.m_admission, events);
    CServerRun server(host, output);
    gate.Guard(server.Server());
    if (!server.Start(options.m_wPort))
    {
        return EXIT_NOT_CONNECTED;
    }
    pump.TellSources();
    events.Listening(server.Port(), nullptr, pump.Channels());
    pump.RunToEnd(server.Server(), signals, options.m_dwLingerSeconds);
    signals.ForceOnNext([] {});
    server.End();
    gate.Summarize();
    pump.Summarize();
    events.Stopped();
    return pump.HasFailed() ? EXIT_FILE_FAILED : EXIT_DONE;
}
