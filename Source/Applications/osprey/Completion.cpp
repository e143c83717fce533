#include "Completion.h"

#include <vector>

namespace
{

// What a value is, as far as a shell can help with it.
enum EValue
{
    VALUE_NONE,  // the option is a flag
    VALUE_OTHER,
    VALUE_FILE,
    VALUE_FOLDER,
};

struct COptionText
{
    std::string m_strShort;  // one letter, or empty
    std::string m_strLong;
    std::string m_strAbout;
    EValue m_eValue = VALUE_OTHER;
};

struct CCommandText
{
    std::string m_strName;
    std::string m_strAbout;
    bool m_bFiles = false;  // its arguments are files or folders of this machine
    std::vector<COptionText> m_listOptions;
};

EValue ValueOf(const CLI::Option& option)
{
    if (option.get_items_expected_max() == 0)
    {
        return VALUE_NONE;
    }
    const std::string strType = option.get_type_name();
    return strType == "FILE" ? VALUE_FILE : strType == "DIR" ? VALUE_FOLDER : VALUE_OTHER;
}

CCommandText TextOf(const CLI::App& command)
{
    CCommandText text;
    text.m_strName = command.get_name();
    text.m_strAbout = command.get_description();
    for (const CLI::Option* pOption : command.get_options())
    {
        if (pOption->get_lnames().empty())
        {
            const std::string strArgument = pOption->get_name(true);
            text.m_bFiles = text.m_bFiles || strArgument == "PATH" || strArgument == "DIR";
            continue;
        }
        COptionText option;
        option.m_strShort = pOption->get_snames().empty() ? "" : pOption->get_snames().front();
        option.m_strLong = pOption->get_lnames().front();
        option.m_strAbout = pOption->get_description();
        option.m_eValue = ValueOf(*pOption);
        text.m_listOptions.push_back(option);
    }
    return text;
}

std::vector<CCommandText> CommandsOf(const CLI::App& app)
{
    std::vector<CCommandText> listCommands;
    for (const CLI::App* pCommand : app.get_subcommands(nullptr))
    {
        if (!pCommand->get_group().empty())
        {
            listCommands.push_back(TextOf(*pCommand));
        }
    }
    return listCommands;
}

// A text between single quotes, each of some characters behind a backslash.
std::string Quoted(const std::string& strText, const char* pszEscaped, const char* pszQuote)
{
    std::string strResult;
    for (const char c : strText)
    {
        if (c == '\'')
        {
            strResult += pszQuote;
            continue;
        }
        strResult += std::string(pszEscaped).find(c) == std::string::npos ? "" : "\\";
        strResult += c;
    }
    return strResult;
}

std::string BashOptions(const CCommandText& command, EValue eValue, const std::string& strBetween)
{
    std::string strResult;
    for (const COptionText& option : command.m_listOptions)
    {
        if (option.m_eValue != eValue)
        {
            continue;
        }
        strResult += (strResult.empty() ? "" : strBetween) + "--" + option.m_strLong;
        strResult += option.m_strShort.empty() ? "" : strBetween + "-" + option.m_strShort;
    }
    return strResult;
}

std::string BashCommand(const CCommandText& command)
{
    const std::string strFlags = BashOptions(command, VALUE_NONE, " ");
    const std::string strOther = BashOptions(command, VALUE_OTHER, "|");
    const std::string strFiles = BashOptions(command, VALUE_FILE, "|");
    const std::string strFolders = BashOptions(command, VALUE_FOLDER, "|");
    const auto Case = [](const std::string& strOptions, const char* pszAction) {
        return strOptions.empty() ? ""
                                  : "                " + strOptions + ") " + pszAction + " ;;\n";
    };
    std::string strAll = strFlags;
    for (const EValue eValue : {VALUE_OTHER, VALUE_FILE, VALUE_FOLDER})
    {
        strAll += " " + BashOptions(command, eValue, " ");
    }
    return "        " + command.m_strName + ")\n            options='" + strAll +
           "'\n            case \"$previous\" in\n" + Case(strOther, "kind=none") +
           Case(strFiles, "kind=file") + Case(strFolders, "kind=folder") +
           "                *) kind=" + (command.m_bFiles ? "file" : "none") +
           "; [[ $current != -* ]] || kind=option ;;\n            esac\n            ;;\n";
}

std::string BashCompletion(const std::vector<CCommandText>& listCommands)
{
    std::string strNames;
    std::string strCases;
    for (const CCommandText& command : listCommands)
    {
        strNames += command.m_strName + " ";
        strCases += BashCommand(command);
    }
    return "_osprey()\n{\n"
           "    local current=\"${COMP_WORDS[COMP_CWORD]}\" "
           "previous=\"${COMP_WORDS[COMP_CWORD-1]}\"\n"
           "    local options='' kind=none\n"
           "    COMPREPLY=()\n"
           "    if ((COMP_CWORD == 1)); then\n"
           "        mapfile -t COMPREPLY < <(compgen -W '" +
           strNames +
           "--help' -- \"$current\")\n        return\n    fi\n"
           "    case \"${COMP_WORDS[1]}\" in\n" +
           strCases +
           "        *) return ;;\n    esac\n"
           "    case \"$kind\" in\n"
           "        option) mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$current\") ;;\n"
           "        file) compopt -o filenames 2>/dev/null\n"
           "            mapfile -t COMPREPLY < <(compgen -f -- \"$current\") ;;\n"
           "        folder) compopt -o filenames 2>/dev/null\n"
           "            mapfile -t COMPREPLY < <(compgen -d -- \"$current\") ;;\n"
           "    esac\n}\ncomplete -F _osprey osprey\n";
}

std::string ZshOption(const COptionText& option)
{
    const char* pszValues[] = {"", ":value: ", ":file:_files", ":folder:_files -/"};
    const std::string strRest =
        "[" + Quoted(option.m_strAbout, "[]:\\", "'\\''") + "]" + pszValues[option.m_eValue] + "'";
    std::string strResult = " \\\n                '*--" + option.m_strLong + strRest;
    if (!option.m_strShort.empty())
    {
        strResult += " \\\n                '*-" + option.m_strShort + strRest;
    }
    return strResult;
}

std::string ZshCompletion(const std::vector<CCommandText>& listCommands)
{
    std::string strNames;
    std::string strCases;
    for (const CCommandText& command : listCommands)
    {
        strNames += "        '" + command.m_strName + ":" +
                    Quoted(command.m_strAbout, ":\\", "'\\''") + "'\n";
        strCases += "        " + command.m_strName + ")\n            _arguments";
        for (const COptionText& option : command.m_listOptions)
        {
            strCases += ZshOption(option);
        }
        strCases += std::string(" \\\n                '*::argument:") +
                    (command.m_bFiles ? "_files" : " ") + "'\n            ;;\n";
    }
    return "#compdef osprey\n\n_osprey()\n{\n    local -a commands\n    commands=(\n" + strNames +
           "    )\n    if (( CURRENT == 2 )); then\n"
           "        _describe -t commands 'osprey command' commands\n        return\n    fi\n"
           "    shift words\n    (( CURRENT-- ))\n    case $words[1] in\n" +
           strCases +
           "    esac\n}\n\n"
           "if [[ $zsh_eval_context[-1] == loadautofunc ]]; then\n    _osprey \"$@\"\nelse\n"
           "    compdef _osprey osprey\nfi\n";
}

std::string FishOption(const std::string& strCommand, const COptionText& option)
{
    const char* pszValues[] = {"", " -x", " -r -F", " -x -a '(__fish_complete_directories)'"};
    return "complete -c osprey -n '__fish_seen_subcommand_from " + strCommand + "'" +
           (option.m_strShort.empty() ? "" : " -s " + option.m_strShort) + " -l " +
           option.m_strLong + pszValues[option.m_eValue] + " -d '" +
           Quoted(option.m_strAbout, "\\", "\\'") + "'\n";
}

std::string FishCompletion(const std::vector<CCommandText>& listCommands)
{
    std::string strResult = "complete -c osprey -f\n";
    for (const CCommandText& command : listCommands)
    {
        strResult += "complete -c osprey -n __fish_use_subcommand -a " + command.m_strName +
                     " -d '" + Quoted(command.m_strAbout, "\\", "\\'") + "'\n";
        if (command.m_bFiles)
        {
            strResult += "complete -c osprey -n '__fish_seen_subcommand_from " + command.m_strName +
                         "' -F\n";
        }
        for (const COptionText& option : command.m_listOptions)
        {
            strResult += FishOption(command.m_strName, option);
        }
    }
    return strResult;
}

}  // namespace

std::string Completion(const CLI::App& app, const std::string& strShell)
{
    const std::vector<CCommandText> listCommands = CommandsOf(app);
    if (strShell == "bash")
    {
        return BashCompletion(listCommands);
    }
    return strShell == "zsh" ? ZshCompletion(listCommands) : FishCompletion(listCommands);
}
