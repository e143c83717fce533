#ifndef OSPREY_TESTS_TOOLPROCESS_H
#define OSPREY_TESTS_TOOLPROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "Event.h"

// While it lives, a tool that is started may end with threads that nobody has joined: an end at
// once joins none. The thread sanitizer would call them leaked, and let them run on for a second.
class CEndWithoutJoin
{
public:
    CEndWithoutJoin();
    ~CEndWithoutJoin();
    CEndWithoutJoin(const CEndWithoutJoin&) = delete;
    CEndWithoutJoin& operator=(const CEndWithoutJoin&) = delete;

private:
    std::string m_strBefore;
};

// While it lives, a tool that is started has this in TERM, not xterm.
class CWithTerm
{
public:
    explicit CWithTerm(const std::string& strTerm);
    ~CWithTerm();
    CWithTerm(const CWithTerm&) = delete;
    CWithTerm& operator=(const CWithTerm&) = delete;
};

// The sequences of a terminal in the text move the cursor, clear and switch wrapping: there is none
// for a colour, nor anything else.
bool HasOnlyCursorSequences(const std::string& strOutput);

// A run of the real tool. Its standard output and error are read while the test waits for
// something; every wait has a deadline and fails the test with what it waited for.
class CToolProcess
{
public:
    // Starts it. nColumns: with a terminal of that width as standard output; 0: with a pipe.
    // strFolder: its working folder; empty: the test's own. strInput: file for its standard input.
    explicit CToolProcess(const std::vector<std::string>& listArguments, int nColumns = 0,
                          const std::string& strFolder = std::string(),
                          const std::string& strInput = "/dev/null");
    // Kills it when it still runs.
    ~CToolProcess();
    CToolProcess(const CToolProcess&) = delete;
    CToolProcess& operator=(const CToolProcess&) = delete;

    void Signal(int nSignal) const;

    // Sends the signal again and again until it ends; returns as Wait.
    int SignalUntilEnd(int nSignal);

    // The exit code, or minus the signal that ended it. Reads its output to the end before.
    int Wait();

    // Waits until the condition holds, reading meanwhile.
    bool WaitUntil(const std::string& strFor, const std::function<bool()>& fnCondition);

    // Waits until standard output holds the text.
    bool WaitForOutput(const std::string& strText);

    // Waits for a JSON line of that event, after those that were taken already; null when none
    // comes.
    CEvent WaitForEvent(const std::string& strEvent);

    const std::string& GetOutput() const
    {
        return m_strOutput;
    }
    const std::string& GetErrors() const
    {
        return m_strErrors;
    }
    // The whole lines of the output.
    std::vector<std::string> GetLines() const;
    // The output as JSON; fails the test for a line that is none.
    std::vector<CEvent> GetEvents() const;

    // Types on its terminal: "\x13" (Ctrl-S) stops the output.
    void Type(const std::string& strKeys) const;

    // From now on nobody reads the standard output.
    void CloseOutput();

private:
    bool ReadSome(int nTimeoutMs);

    pid_t m_nProcess = -1;
    int m_nOutput = -1;
    int m_nErrors = -1;
    std::string m_strOutput;
    std::string m_strErrors;
    size_t m_nEventsTaken = 0;
};

// Runs the tool to its end.
struct CToolRun
{
    explicit CToolRun(const std::vector<std::string>& listArguments,
                      const std::string& strFolder = std::string());

    int m_nExitCode;
    std::string m_strOutput;
    std::string m_strErrors;
    std::vector<std::string> m_listLines;
};

#endif
