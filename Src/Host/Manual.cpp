/// The manual page, from prose and the program's own options.

#include "Words.h"

#include <algorithm>
#include <sstream>

namespace host {

namespace {

/// A text in troff's eyes: hyphens that can be copied, and no line that is taken for a request.
std::string Troff(const std::string &text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool startsLine = i == 0 || text[i - 1] == '\n';
        if (startsLine && (text[i] == '.' || text[i] == '\''))
            result += "\\&";
        if (text[i] == '-' || text[i] == '\\')
            result += '\\';
        result += text[i] == '\\' ? 'e' : text[i];
    }
    return result;
}

std::string OptionEntry(const Argument &argument) {
    std::string head;
    for (const std::string &name : argument.names)
        head += (head.empty() ? "\\fB" : ", \\fB") + Troff(name) + "\\fR";
    if (!argument.placeholder.empty()) {
        const bool areWords = argument.placeholder.find('|') != std::string::npos;
        head += std::string(head.empty() ? "" : " ") + (areWords ? "\\fB" : "\\fI") +
                Troff(argument.placeholder) + "\\fR";
    }
    std::string text = ".TP\n" + head + "\n" + Troff(argument.description);
    if (!text.ends_with('.'))
        text += '.';
    if (!argument.standard.empty())
        text += "\nDefault: " + Troff(argument.standard) + '.';
    return text + '\n';
}

/// The help's last words: lines that are set in stay lines.
std::string Footer(const std::string &footer) {
    std::string text = footer.empty() ? "" : ".PP\n";
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        const bool isSetIn = line.starts_with("  ");
        text += line.empty() ? ".PP\n" : (isSetIn ? ".br\n" : "") + Troff(line) + '\n';
    }
    return text;
}

std::string Options(const Command &command) {
    std::string text;
    for (const Argument &argument : command.arguments)
        text += OptionEntry(argument);
    return text + Footer(command.footer);
}

} // namespace

std::string Manual(const CLI::App &app, const std::string &prose) {
    const std::vector<Command> commands = DescribeCommands(app);
    std::string page;
    std::istringstream lines(prose);
    for (std::string line; std::getline(lines, line);) {
        if (const std::size_t at = line.find("@version@"); at != std::string::npos)
            line.replace(at, 9, app.version());
        page += line + '\n';
        if (line == ".\\\" options")
            page += Options(Describe(app));
        for (const Command &command : commands) {
            const bool isMissing =
                prose.find(".\\\" options " + command.name + "\n") == std::string::npos;
            if (line == ".\\\" options " + command.name)
                page += Options(command);
            else if (line == ".\\\" further commands" && isMissing)
                page += ".SS " + command.name + "\n" + Troff(command.description) + ".\n" +
                        Options(command);
        }
    }
    return page;
}

} // namespace host
