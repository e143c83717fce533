#include "SubscribeCommand.h"

#include "SubscribeRun.h"

int RunSubscribe(const COptions& options, COutput& output)
{
    CSubscribeRun run(options, output);
    return run.Execute();
}
