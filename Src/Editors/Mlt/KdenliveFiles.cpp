// Writes the files by which Kdenlive shows the transitions in its lists, one for each.
// Arguments: the plug-in library and the folder to write to.

#include "Services.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

namespace {

using hostkit::Transition;

std::string Escaped(std::string_view text) {
    std::string result;
    for (const char c : text)
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    return result;
}

std::string Joined(const std::vector<std::string> &words, char separator) {
    std::string result;
    for (const std::string &word : words)
        result += (result.empty() ? "" : std::string(1, separator)) + word;
    return result;
}

void WriteParameter(std::ostream &out, const mlt::Parameter &parameter) {
    constexpr const char *kTypes[] = {"bool", "constant", "list"};
    constexpr const char *kRanges[] = {" min=\"0\" max=\"1\"", " min=\"0\" max=\"99999\"", ""};
    out << "    <parameter type=\"" << kTypes[int(parameter.kind)] << "\" name=\"" << parameter.name
        << "\" default=\"" << parameter.preset << '"' << kRanges[int(parameter.kind)];
    if (parameter.kind == mlt::Kind::Choice)
        out << " paramlist=\"" << Joined(parameter.values, ';') << '"';
    out << ">\n";
    if (parameter.kind == mlt::Kind::Choice)
        out << "        <paramlistdisplay>" << Escaped(Joined(parameter.labels, ','))
            << "</paramlistdisplay>\n";
    out << "        <name>" << Escaped(parameter.title) << "</name>\n"
        << "        <comment>" << Escaped(parameter.description) << "</comment>\n"
        << "    </parameter>\n";
}

/// `type="short"` gives a new transition the length that the user set for transitions, not that of
/// the clip.
void WriteTransition(std::ostream &out, const Transition &transition) {
    const std::string name = mlt::ServiceName(transition);
    out << "<?xml version=\"1.0\"?>\n<!DOCTYPE kpartgui>\n<transition tag=\"" << name << "\" id=\""
        << name << "\" type=\"short\">\n    <name>" << Escaped(mlt::Title(transition))
        << "</name>\n    <description>" << Escaped(mlt::Description(transition))
        << "</description>\n";
    // Kdenlive itself sets kReverse in mixes.
    for (const mlt::Parameter &parameter : mlt::Parameters(transition))
        if (parameter.name != std::string_view(mlt::kReverse))
            WriteParameter(out, parameter);
    out << "</transition>\n";
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " PLUGIN FOLDER\n";
        return 2;
    }
    try {
        const hostkit::Plugin plugin(argv[1]);
        const std::filesystem::path folder = argv[2];
        std::filesystem::create_directories(folder);
        for (const Transition &transition : plugin.Transitions()) {
            if (!transition.yuv && !transition.rgb)
                continue;
            std::ofstream file(folder / (mlt::ServiceName(transition) + ".xml"));
            file.exceptions(std::ios::failbit | std::ios::badbit);
            WriteTransition(file, transition);
            file.close();
        }
    } catch (const std::exception &error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
