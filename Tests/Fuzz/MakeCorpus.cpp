// Writes the seeds of the corpora that speak WXSP: well-formed conversations, and some that are
// not, a file each below the folder named on the command line. The other targets need no seeds:
// every input of theirs is as good as any.

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "WireRecords.h"

namespace
{

const int EVENTS = 7;  // of HostileServer.h

std::filesystem::path g_folder;

std::string Bytes(std::initializer_list<int> bytes)
{
    std::string strBytes;
    for (const int nByte : bytes)
    {
        strBytes += static_cast<char>(nByte);
    }
    return strBytes;
}

void Write(const char* pszTarget, const std::string& strName, const std::string& strInput)
{
    std::filesystem::create_directories(g_folder / pszTarget);
    std::ofstream(g_folder / pszTarget / strName, std::ios::binary) << strInput;
}

// The first letter of a name chooses the place (FuzzRoot.h).
std::u16string Place(char cLetter)
{
    return std::u16string(1, static_cast<char16_t>(cLetter)) + u"/file";
}

std::string Upload(uint32_t dwID, char cPlace, uint64_t ullOffset = 0)
{
    return Wire::Upfi(dwID, 20, ullOffset, Place(cPlace)) + Wire::Upfb(dwID, 0, "0123456789") +
           Wire::Upfb(dwID, 1, "");
}

std::string Download(uint32_t dwID, char cPlace, uint64_t ullOffset = 0)
{
    return Wire::Dfil(dwID, ullOffset, Place(cPlace));
}

// Every request at every place.
std::string EveryPlace(std::string (*pfnRequest)(uint32_t, char))
{
    std::string strStream = Wire::Brow() + Wire::Namc(1, u"device");
    for (char c = 'a'; c <= 'l'; ++c)
    {
        strStream += pfnRequest(static_cast<uint32_t>(c), c);
    }
    return strStream;
}

// Each stream behind each head, under a number of its own.
void WriteAll(const char* pszTarget, const std::vector<std::string>& streams,
              const std::vector<std::string>& heads)
{
    int nNumber = 0;
    for (const std::string& strStream : streams)
    {
        for (std::string strInput : heads)
        {
            strInput += strStream;
            Write(pszTarget, "seed-" + std::to_string(++nNumber), strInput);
        }
    }
}

void WriteServerSeeds()
{
    const std::string strContinued = Wire::Brow() + Upload(3, 'a', ~0ULL) + Upload(3, 'b', 100) +
                                     Upload(4, 'd', 1ULL << 62) + Wire::Caop(4);
    const std::string strCancelled = Wire::Brow() + Download(7, 'b') + Wire::Caop(7) +
                                     Download(7, 'b', 5) + Download(7, 'c') + Upload(7, 'd');
    const std::string strChannels = Wire::Ochs({0, 1, 2}) + Wire::Keep() + Wire::Ochs({3, 3, 9}) +
                                    Wire::Keep() + Wire::Ochs({}) + Wire::Keep() + Wire::Ochs({1});
    WriteAll(
        "ServerStream",
        {EveryPlace([](uint32_t dwID, char c) { return Upload(dwID, c); }),
         EveryPlace([](uint32_t dwID, char c) { return Download(dwID, c); }),
         EveryPlace([](uint32_t dwID, char c) { return Wire::Cdir(dwID, Place(c)); }),
         EveryPlace([](uint32_t dwID, char c) { return Wire::Delt(dwID, Place(c)); }), strContinued,
         strCancelled, strChannels, Wire::Keep() + Wire::Brow() + Wire::Ochs({1}),
         Wire::Brow() + Wire::PacketWithSize("UPFB", 0x20000, "x")},
        {Bytes({1, 0, 0}), Bytes({4 + 32, 1, 2}), Bytes({8 + 16 + 64, 1, 1}),
         Bytes({2 + 96 + 128, 7, 3}), Bytes({1 + 96, 0, 8 + 2})});
}

void WriteFramingSeeds()
{
    const std::string strSmall = Wire::Brow() + Wire::Keep() + Wire::Namc(1, u"device") +
                                 Wire::Upfb(2, 0, std::string(40, 'x')) + Wire::Keep();
    const std::string strLarge = Wire::Dfrb(1, std::string(1500, 'y')) + Wire::Cpkt(1, "z");
    WriteAll("Framing", {strSmall, strLarge, strSmall + strLarge + strSmall},
             {Bytes({0, 0}), Bytes({1, 0}), Bytes({4, 1}), Bytes({5, 1}), Bytes({6, 5}),
              Bytes({7, 33}), Bytes({14, 200}), Bytes({15, 255})});
}

void WriteNamesSeeds()
{
    int nNumber = 0;
    for (const std::u16string& strName :
         {std::u16string(u"plain"), std::u16string(u"\u00E9\u4E16\uFFFD"),
          std::u16string(u"\U0001F600"), std::u16string(1, char16_t{0xD800}),
          std::u16string(1, char16_t{0xDC00}) + u"x"})
    {
        for (const int nMode : {0, 5, 2, 7})
        {
            Write("Names", "seed-" + std::to_string(++nNumber),
                  Bytes({nMode}) + std::string(static_cast<size_t>(nMode % 4 * 12), 'r') +
                      Wire::Name(strName));
        }
    }
    for (const char* pszText : {"plain", "\xC3\xA9\xE4\xB8\x96", "\xF0\x9F\x98\x80", "\xED\xA0\x80",
                                "\xC0\x80", "\xFF", "\xF4\x90\x80\x80", "\xE4\xB8"})
    {
        Write("Names", "seed-" + std::to_string(++nNumber), Bytes({8}) + pszText);
    }
}

// Three files, or none; no event, or each of them before the third reply.
std::vector<std::string> GetClientHeads(const std::string& strHost)
{
    std::vector<std::string> heads = {strHost + Bytes({9, 0, 0, 1}),
                                      Bytes({3}) + strHost.substr(1) + Bytes({1, 0, 0, 0})};
    heads.resize(heads.size() + EVENTS);
    for (int nEvent = 0; nEvent < EVENTS; ++nEvent)
    {
        heads[heads.size() - 1 - static_cast<size_t>(nEvent)] =
            strHost + Bytes({1, nEvent, 2, nEvent % 3});
    }
    return heads;
}

// What a server answers to an upload of a file under this id; the name had 1.
std::string TakeUpload(uint32_t dwID, uint64_t ullOffset = 0)
{
    return Wire::Upfr(dwID, 0, ullOffset) + Wire::Result("UPBR", dwID, 0) +
           Wire::Result("UPBR", dwID, 0) + Wire::Result("UPBR", dwID, 0) +
           Wire::Result("UPBR", dwID, 0);
}

void WriteSubmitSeeds()
{
    const std::string strNamed = Wire::Result("NAMR", 1, 0);
    WriteAll(
        "SubmitClient",
        {strNamed + TakeUpload(2) + TakeUpload(3) + Wire::Result("CDRT", 4, 0),
         strNamed + TakeUpload(2, 5) + TakeUpload(2) + Wire::Result("DTRT", 4, 0),
         strNamed + Wire::Upfr(2, 6, 0) + TakeUpload(3, 1ULL << 63) + Wire::Result("CDRT", 4, 8),
         Wire::Result("NAMR", 1, 4), strNamed + Wire::Result("UPBR", 2, 0) + TakeUpload(2),
         strNamed + Wire::Upfr(2, 0, 5) + TakeUpload(2)},
        GetClientHeads(Bytes({0, 3, 1, 0, 4})));
}

// A server's answer to a download of so many bytes.
std::string GiveDownload(uint32_t dwID, size_t nSize, size_t nGiven)
{
    return Wire::Dfrt(dwID, 0, nSize, 1) + Wire::Dfrb(dwID, std::string(nGiven, 'g')) +
           Wire::Dfrb(dwID, "");
}

void WriteDownloadSeeds()
{
    const std::string strNamed = Wire::Result("NAMR", 1, 0);
    WriteAll("DownloadClient",
             {strNamed + GiveDownload(2, 100, 100) + GiveDownload(3, 5, 50) + GiveDownload(4, 0, 0),
              strNamed + GiveDownload(2, 300, 100) + GiveDownload(2, 30, 100),
              strNamed + Wire::Dfrt(2, 5, 0, 0) + Wire::Dfrb(3, "early") + GiveDownload(3, 9, 9) +
                  Wire::Dfrt(4, 1, 0, 0),
              strNamed + Wire::PacketWithSize("DFRB", 0x7FFFFFFF, "large")},
             GetClientHeads(Bytes({0, 3, 3, 9, 3 + 12})));
}

void WriteChannelSeeds()
{
    WriteAll("ChannelClient",
             {Wire::Cpkt(1, "one") + Wire::Cpkt(2, "") + Wire::Cpkt(77, std::string(1500, 'c')),
              Wire::Cpkt(1, "one") + Wire::PacketWithSize("CPKT", 2, "ab") + Wire::Cpkt(1, "two") +
                  Wire::Keep() + Wire::Cpkt(3, "three") + Wire::Cpkt(4, "four"),
              Wire::PacketWithSize("CPKT", 0xFFFFFFFF, "large")},
             GetClientHeads(Bytes({0, 3})));
}

}  // namespace

int main(int nArguments, char* pszArguments[])
{
    if (nArguments != 2)
    {
        return 2;
    }
    g_folder = pszArguments[1];
    WriteFramingSeeds();
    WriteNamesSeeds();
    WriteServerSeeds();
    WriteSubmitSeeds();
    WriteDownloadSeeds();
    WriteChannelSeeds();
    return 0;
}
