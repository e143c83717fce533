#include "Settings.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <utility>

#include "TempFile.h"
#include "Text.h"

namespace
{

using CItems = std::vector<CLI::ConfigItem>;

std::string FromEnvironment(const char* pszName)
{
    const char* pszValue = getenv(pszName);
    return pszValue == nullptr ? std::string() : pszValue;
}

std::string DefaultFile()
{
    const std::string strConfigHome = FromEnvironment("XDG_CONFIG_HOME");
    if (!strConfigHome.empty())
    {
        return strConfigHome + "/osprey/config.toml";
    }
    const std::string strHome = FromEnvironment("HOME");
    return strHome.empty() ? std::string() : strHome + "/.config/osprey/config.toml";
}

std::string VariableOf(const std::string& strOption)
{
    std::string strName = "OSPREY_" + strOption;
    std::transform(strName.begin(), strName.end(), strName.begin(),
                   [](unsigned char c) { return c == '-' ? '_' : static_cast<char>(toupper(c)); });
    return strName;
}

std::string LongName(const CLI::Option& option)
{
    return option.get_lnames().empty() ? std::string() : option.get_lnames().front();
}

CLI::Option* FindOption(CLI::App& command, const std::string& strName)
{
    return strName.empty() || strName == "help" || strName == "config"
               ? nullptr
               : command.get_option_no_throw("--" + strName);
}

// The reader's marks of where a section begins and ends are no options.
bool IsMark(const CLI::ConfigItem& item)
{
    return item.name == "++" || item.name == "--";
}

bool IsKnown(CLI::App& app, const CLI::ConfigItem& item)
{
    const std::vector<CLI::App*> listCommands = app.get_subcommands(nullptr);
    return std::any_of(
        listCommands.begin(), listCommands.end(),
        [&item](CLI::App* pCommand)
        {
            return (item.parents.empty() ||
                    (item.parents.size() == 1 && item.parents.front() == pCommand->get_name())) &&
                   FindOption(*pCommand, item.name) != nullptr;
        });
}

bool ReadItems(CLI::App& app, const std::string& strFile, CItems& listItems, std::string& strReason)
{
    try
    {
        if (KindOf(strFile, true) == KIND_FOLDER)
        {
            throw CLI::FileError::Missing(strFile);  // would read as an empty file
        }
        listItems = CLI::ConfigTOML().from_file(strFile);
    }
    catch (const CLI::Error&)
    {
        strReason = "cannot read the configuration " + QuoteText(strFile);
        return false;
    }
    for (const CLI::ConfigItem& item : listItems)
    {
        if (!IsMark(item) && !IsKnown(app, item))
        {
            strReason = QuoteText(strFile) + ": there is no option " + QuoteText(item.fullname());
            return false;
        }
        const auto IsEmpty = [](const std::string& strInput) { return strInput.empty(); };
        if (!IsMark(item) &&
            (item.inputs.empty() || std::any_of(item.inputs.begin(), item.inputs.end(), IsEmpty)))
        {
            strReason = QuoteText(strFile) + ": " + QuoteText(item.fullname()) + " has no value";
            return false;
        }
    }
    return true;
}

// The values of an option in the file: those of the command's own section before those for all.
std::vector<std::string> FromFile(const CItems& listItems, const std::string& strCommand,
                                  const std::string& strOption)
{
    std::vector<std::string> listValues;
    bool bOwn = false;
    for (const CLI::ConfigItem& item : listItems)
    {
        const bool bItemOwn = !item.parents.empty() && item.parents.front() == strCommand;
        if (item.name == strOption && (bItemOwn || (item.parents.empty() && !bOwn)))
        {
            listValues = item.inputs;
            bOwn = bItemOwn;
        }
    }
    return listValues;
}

std::vector<std::string> ValuesOf(const CItems& listItems, const std::string& strCommand,
                                  const std::string& strOption)
{
    const std::string strValue = FromEnvironment(VariableOf(strOption).c_str());
    return strValue.empty() ? FromFile(listItems, strCommand, strOption)
                            : std::vector<std::string>{strValue};
}

// Which options the arguments give; false when they cannot be parsed.
bool ParseLoosely(CLI::App& app, std::vector<std::string> listArguments)
{
    for (CLI::App* pCommand : app.get_subcommands(nullptr))
    {
        for (CLI::Option* pOption : pCommand->get_options())
        {
            pOption->required(false);
        }
    }
    try
    {
        std::reverse(listArguments.begin(), listArguments.end());
        app.parse(std::move(listArguments));
        return true;
    }
    catch (const CLI::ParseError&)
    {
        return false;
    }
}

// The file that was asked for, or the one that is there; empty when there is none.
std::string FileOf(CLI::App& command)
{
    const CLI::Option* pConfig = command.get_option_no_throw("--config");
    const std::string strGiven = pConfig != nullptr && pConfig->count() > 0
                                     ? pConfig->as<std::string>()
                                     : FromEnvironment("OSPREY_CONFIG");
    const std::string strDefault = DefaultFile();
    return strGiven.empty() && KindOf(strDefault, true) != KIND_MISSING ? strDefault : strGiven;
}

}  // namespace

bool AddSettings(CLI::App& app, std::vector<std::string>& listArguments, std::string& strReason)
{
    if (!ParseLoosely(app, listArguments) || app.get_subcommands().empty())
    {
        return true;
    }
    CLI::App& command = *app.get_subcommands().front();
    const std::string strFile = FileOf(command);
    CItems listItems;
    if (!strFile.empty() && !ReadItems(app, strFile, listItems, strReason))
    {
        return false;
    }
    std::vector<std::string> listAdded;
    for (const CLI::Option* pOption : command.get_options())
    {
        const std::string strName = LongName(*pOption);
        if (FindOption(command, strName) == nullptr || pOption->count() > 0)
        {
            continue;
        }
        for (const std::string& strValue : ValuesOf(listItems, command.get_name(), strName))
        {
            std::string strArgument = "--";
            strArgument.append(strName).append("=").append(strValue);
            listAdded.push_back(std::move(strArgument));
        }
    }
    listArguments.insert(listArguments.begin() + 1, listAdded.begin(), listAdded.end());
    return true;
}
