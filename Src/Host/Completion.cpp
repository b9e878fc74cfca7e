/// What bash and zsh are told of the options.

#include "Words.h"

#include <algorithm>

namespace host {

namespace {

std::string Joined(const std::vector<std::string> &words, const char *separator = " ") {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : separator) + word;
    return text;
}

std::string Replaced(const std::string &text, char from, const std::string &to) {
    std::string result;
    for (const char c : text)
        result += c == from ? to : std::string(1, c);
    return result;
}

/// What bash does to complete a value.
std::string BashAction(const Value &value) {
    switch (value.kind) {
    case Kind::Words:
        return "words='" + Joined(value.words) + "'";
    case Kind::Transitions:
        return "_transitions_names \"$1\" " + Joined(value.words);
    case Kind::Files:
        return "_transitions_files";
    default:
        return ":";
    }
}

/// The cases of a command: values behind its options, then options, then what stands without.
std::string BashCases(const Command &command, const std::vector<std::string> &names) {
    std::string values, options, rest = "        words='" + Joined(names) + "'\n";
    for (const Argument &argument : command.arguments) {
        options += (options.empty() ? "" : " ") + Joined(argument.names);
        if (argument.names.empty())
            rest = "        " + BashAction(argument.value) + "\n";
        else if (argument.value.kind != Kind::Nothing)
            values += "        " + Joined(argument.names, " | ") + ") " +
                      BashAction(argument.value) + "; return ;;\n";
    }
    return "    '" + command.name + "')\n        case $previous in\n" + values +
           "        esac\n        [[ $current == -* ]] && words='" + options + "' && return\n" +
           rest + "        ;;\n";
}

constexpr const char *kBashHead =
    R"bash(# Completion of transitions(1) for bash; made from the program's options.

_transitions_names() {
    local name
    while read -r name; do
        [[ ${name,,} == "${current,,}"* ]] && COMPREPLY+=("$(printf %q "$name")")
    done < <("$1" completion names 2>/dev/null; printf '%s\n' "${@:2}")
}

_transitions_files() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
}

# Completes by itself or leaves the words that there are.
_transitions_look() {
    case $command in
)bash";

constexpr const char *kBashTail = R"bash(    esac
}

_transitions() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command= words= i
    # bash makes words of both sides of "=" and of itself.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    current=${current//\\/}
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        --plugin)
            [[ ${COMP_WORDS[i + 1]} == = ]] && ((i++))
            ((i++))
            ;;
        -*) ;;
        *)
            command=${COMP_WORDS[i]}
            break
            ;;
        esac
    done
    COMPREPLY=()
    _transitions_look "$1"
    [[ -z $words ]] || mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _transitions transitions
)bash";

/// A text inside single quotes and square brackets.
std::string ZshText(const std::string &text) {
    std::string result = text;
    for (const char c : {'\\', '[', ']', ':'})
        result = Replaced(result, c, std::string("\\") + c);
    return Replaced(result, '\'', "'\\''");
}

std::string ZshAction(const Value &value) {
    switch (value.kind) {
    case Kind::Words:
        return "(" + Joined(value.words) + ")";
    case Kind::Transitions:
        return " _transitions_names " + Joined(value.words);
    case Kind::Files:
        return "_files";
    default:
        return " ";
    }
}

/// How _arguments is told of an option, or of what stands without one.
std::string ZshArgument(const Argument &argument) {
    const bool hasValue = argument.value.kind != Kind::Nothing;
    const std::string value =
        hasValue ? ":" + ZshText(argument.placeholder) + ":" + ZshAction(argument.value) : "";
    if (argument.names.empty())
        return (argument.repeats ? " '*" : " '") + value + "'";
    std::string text;
    for (const std::string &name : argument.names) {
        const std::string sign = !hasValue ? "" : name.starts_with("--") ? "=" : "+";
        const std::string others = argument.repeats ? "*" : "(" + Joined(argument.names) + ")";
        text +=
            " '" + others + name + sign + "[" + ZshText(argument.description) + "]" + value + "'";
    }
    return text;
}

std::string ZshArguments(const Command &command) {
    std::string text;
    for (const Argument &argument : command.arguments)
        text += " \\\n           " + ZshArgument(argument);
    return text;
}

constexpr const char *kZshHead = R"zsh(#compdef transitions
# Completion of transitions(1) for zsh; made from the program's options.

_transitions_names() {
    local -a names
    names=("${(@f)$(_call_program transitions $program completion names 2>/dev/null)}" $@)
    compadd -M 'm:{[:lower:][:upper:]}={[:upper:][:lower:]}' -a names
}

_transitions() {
    local curcontext=$curcontext state line program=$words[1]
    local -a commands
)zsh";

} // namespace

std::string BashCompletion(const CLI::App &app) {
    std::vector<std::string> names;
    std::string cases;
    for (const Command &command : DescribeCommands(app)) {
        names.push_back(command.name);
        cases += BashCases(command, {});
    }
    Command program = Describe(app);
    program.name.clear();
    return kBashHead + BashCases(program, names) + cases + kBashTail;
}

std::string ZshCompletion(const CLI::App &app) {
    std::string names, cases;
    for (const Command &command : DescribeCommands(app)) {
        names += "        '" + command.name + ":" + ZshText(command.description) + "'\n";
        cases += "        " + command.name + ")\n            _arguments -S" +
                 ZshArguments(command) + "\n            ;;\n";
    }
    return kZshHead +
           ("    commands=(\n" + names + "    )\n    _arguments -C" + ZshArguments(Describe(app)) +
            " \\\n            '1: :->command' '*:: :->arguments'\n    case $state in\n"
            "    command) _describe command commands ;;\n    arguments)\n"
            "        case $words[1] in\n" +
            cases + "        esac\n        ;;\n    esac\n}\n\n_transitions \"$@\"\n");
}

} // namespace host
