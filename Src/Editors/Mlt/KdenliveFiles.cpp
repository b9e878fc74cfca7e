// Writes the files by which Kdenlive shows the transitions in its lists, one for each, and the
// moving pictures that newer releases show beside them: previews/, named after the transition's id.
// Arguments: the plug-in library, the folder to write to, and the program that draws the pictures
// (without it there are none).

#include "Services.h"

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
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
void WriteTransition(std::ostream &out, const Transition &transition, bool hasPreview) {
    const std::string name = mlt::ServiceName(transition);
    out << "<?xml version=\"1.0\"?>\n<!DOCTYPE kpartgui>\n<transition tag=\"" << name << "\" id=\""
        << name << "\" type=\"short\">\n    <name>" << Escaped(mlt::Title(transition))
        << "</name>\n    <description>" << Escaped(mlt::Description(transition))
        << "</description>\n";
    // Kdenlive itself sets kReverse in mixes.
    for (const mlt::Parameter &parameter : mlt::Parameters(transition))
        if (parameter.name != std::string_view(mlt::kReverse))
            WriteParameter(out, parameter);
    if (hasPreview)
        out << "    <preview>" << name << ".webp</preview>\n";
    out << "</transition>\n";
}

void DrawPreview(const std::string &program, const std::string &plugin,
                 const Transition &transition, const std::filesystem::path &folder) {
    const auto quoted = [](const std::string &word) { return "'" + word + "'"; };
    const std::filesystem::path file = folder / (mlt::ServiceName(transition) + ".webp");
    const std::string command = quoted(program) + " --plugin " + quoted(plugin) + " sheet -t " +
                                quoted(transition.name) + (transition.yuv ? "" : " --path rgb") +
                                " --plain --cell 240 -o " + quoted(file.string());
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("cannot draw " + file.string());
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: " << argv[0] << " PLUGIN FOLDER [PROGRAM]\n";
        return 2;
    }
    try {
        const hostkit::Plugin plugin(argv[1]);
        const std::filesystem::path folder = argv[2], previews = folder / "previews";
        const bool hasPreviews = argc == 4;
        std::filesystem::create_directories(hasPreviews ? previews : folder);
        for (const Transition &transition : plugin.Transitions()) {
            if (!transition.yuv && !transition.rgb)
                continue;
            std::ofstream file(folder / (mlt::ServiceName(transition) + ".xml"));
            file.exceptions(std::ios::failbit | std::ios::badbit);
            WriteTransition(file, transition, hasPreviews);
            file.close();
            if (hasPreviews)
                DrawPreview(argv[3], argv[1], transition, previews);
        }
    } catch (const std::exception &error) {
        std::cerr << argv[0] << ": " << error.what() << '\n';
        return 1;
    }
}
