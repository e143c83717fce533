#include "ClientOptions.h"

#include <unistd.h>

#include "SumList.h"
#include "Text.h"

namespace
{

const size_t LONGEST_CONNECTION_NAME = 259;  // UTF-16 units
const unsigned int MOST_JOBS = 64;

const char SUBMIT_NOTES[] =
    "HOST is a name or an IPv4 address. A folder is sent with all that is in it,\n"
    "under its own name: \"submit HOST a/b\" arrives as b, b/c, b/d. Links to files are\n"
    "sent as files; inside a folder, links to folders, devices, FIFOs and sockets are\n"
    "left out with a warning. A file that arrives replaces one of the same name.\n"
    "With --jobs each connection moves one file at a time; folders are all made\n"
    "before. One that is lost fails its file, and the others go on.\n"
    "A run that did not finish all is continued by the same command: what the server\n"
    "has, and has not changed here since, is left out. --verify fetches everything\n"
    "back once it was sent, compares it by SHA-256, and leaves the list of sums at\n"
    "the server, for \"sha256sum -c\" and \"osprey download --verify\".\n"
    "\n"
    "Examples:\n"
    "  osprey submit 192.168.0.7 photos notes.txt\n"
    "  osprey submit 192.168.0.7 photos --verify --timeout 3600\n"
    "  osprey submit 192.168.0.7 photos --jobs 8\n"
    "  osprey submit camera-3:9000 firmware.bin --to incoming/today\n";

const char DOWNLOAD_NOTES[] =
    "HOST is a name or an IPv4 address. A file is written to DIR under the last part\n"
    "of its name. It appears when it is whole; until then, and after any failure, a\n"
    "file that was there before stays as it was. With --jobs each connection moves\n"
    "one file at a time; one that is lost fails its file, and the others go on.\n"
    "A run that did not come to its end is continued by the same command: what is\n"
    "there, and has not changed since, is left out. --verify checks each file before\n"
    "it gets its name, by the nearest SHA256SUMS at the server: in its folder, the\n"
    "one above, and so on. --manifest names the list; without a NAME all of it is\n"
    "fetched, subfolders included.\n"
    "\n"
    "Examples:\n"
    "  osprey download 192.168.0.7 photos/a.jpg photos/b.jpg\n"
    "  osprey download 192.168.0.7 --manifest photos/SHA256SUMS -o photos\n"
    "  osprey download camera-3:9000 log/today.txt -o /tmp\n";

const char WATCH_NOTES[] =
    "Sends each file once that is in DIR or appears there, under its name below DIR:\n"
    "when it was written and closed, or moved in, and has not changed for a moment.\n"
    "One that is changed or replaced later is sent again. Names that begin with \".\"\n"
    "are left out, and so are links. What was sent is noted in\n"
    "$XDG_STATE_HOME/osprey, or ~/.local/state/osprey, so that the next watch goes on\n"
    "where this one ends; only death between the last byte and the note sends a file\n"
    "twice. While the server is away it is tried again, after 1 to 30 seconds, for\n"
    "ever. Ctrl-C ends the watch.\n"
    "\n"
    "Examples:\n"
    "  osprey watch /var/spool/outbox 192.168.0.7 --to inbox\n"
    "  osprey watch recordings camera-3:9000 --jobs 4 --json\n";

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
}

// What a run has that comes to an end.
void AddRun(CLI::App& command, COptions& options)
{
    command
        .add_option("--timeout", options.m_dwTimeoutSeconds,
                    "Give up the whole run after this time [never]")
        ->type_name("SECONDS")
        ->check(Seconds(1));
    command.add_flag("--restart", options.m_bRestart,
                     "Move all, also what an earlier run finished");
    command.add_flag("--verify", options.m_bVerify, "Check each file by its SHA-256 sum");
    command
        .add_option("--manifest", options.m_strManifest,
                    "Verify, with this list of sums [SHA256SUMS]")
        ->type_name("NAME");
    AddCommon(command, options);
}

void AddTo(CLI::App& command, COptions& options)
{
    command.add_option("--to", options.m_strTo, "Folder at the server to send to [the served one]")
        ->type_name("NAME");
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

// --manifest asks for what --verify does. That of submit is a file of the folder sent to.
bool CheckManifest(COptions& options, std::string& strReason)
{
    const std::string& strName = options.m_strManifest;
    options.m_bVerify = options.m_bVerify || !strName.empty();
    const bool bSubmit = options.m_eCommand == COMMAND_SUBMIT;
    if (!bSubmit && strName.empty() && options.m_listNames.empty())
    {
        strReason = "NAME is required";
        return false;
    }
    const char* pszFault = strName.empty() ? nullptr : NameFault(PlainRemoteName(strName));
    if (bSubmit && strName.find_first_of("/\\|") != std::string::npos)
    {
        pszFault = "it must be the name of a file, without a folder";
    }
    if (pszFault != nullptr)
    {
        strReason = "--manifest " + QuoteText(strName) + ": " + pszFault;
    }
    return pszFault == nullptr;
}

}  // namespace

void AddSubmit(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pSubmit = app.add_subcommand("submit", "Send files and folders to a server");
    AddPeer(*pSubmit, raw);
    pSubmit->add_option("PATH", options.m_listNames, "Files and folders to send")
        ->type_name("")
        ->required();
    AddTo(*pSubmit, options);
    AddClient(*pSubmit, options);
    AddRun(*pSubmit, options);
    pSubmit->footer(SUBMIT_NOTES + ("\n" + HelpEnd("submit")));
    pSubmit->callback([&options] { options.m_eCommand = COMMAND_SUBMIT; });
}

void AddDownload(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pDownload = app.add_subcommand("download", "Fetch files from a server");
    AddPeer(*pDownload, raw);
    pDownload->add_option("NAME", options.m_listNames, "Files at the server, as in photos/a.jpg")
        ->type_name("");
    pDownload
        ->add_option("-o,--output", options.m_strFolder,
                     "Folder for the files, created when missing [.]")
        ->type_name("DIR");
    AddClient(*pDownload, options);
    AddRun(*pDownload, options);
    pDownload->footer(DOWNLOAD_NOTES + ("\n" + HelpEnd("download")));
    pDownload->callback([&options] { options.m_eCommand = COMMAND_DOWNLOAD; });
}

void AddWatch(CLI::App& app, COptions& options, CRaw& raw)
{
    CLI::App* pWatch = app.add_subcommand("watch", "Send what appears in a folder to a server");
    pWatch->add_option("DIR", options.m_strFolder, "Folder to watch, subfolders included")
        ->type_name("")
        ->required();
    AddPeer(*pWatch, raw);
    AddTo(*pWatch, options);
    AddClient(*pWatch, options);
    AddCommon(*pWatch, options);
    pWatch->footer(WATCH_NOTES + ("\n" + HelpEnd("watch")));
    pWatch->callback([&options] { options.m_eCommand = COMMAND_WATCH; });
}

bool CheckClient(COptions& options, std::string& strReason)
{
    return CheckRemoteRoot(options, strReason) && CheckConnectionName(options, strReason) &&
           (options.m_eCommand == COMMAND_WATCH || CheckManifest(options, strReason));
}
