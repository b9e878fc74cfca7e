#include "Program.h"

#include "Joints.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <numeric>
#include <sstream>

namespace host {

namespace fs = std::filesystem;

namespace {

/// Fewest insertions, deletions and replacements that turn one word into the other, letter case
/// aside.
int EditDistance(const std::string &a, const std::string &b) {
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::vector<int> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < a.size(); ++i) {
        int diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const int replaced = diagonal + (lower(a[i]) != lower(b[j]));
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.back();
}

std::string NearestNames(const hostkit::Plugin &plugin, const std::string &name) {
    constexpr std::size_t kOffered = 3;
    std::vector<std::pair<int, std::string>> names;
    for (const hostkit::Transition &transition : plugin.Transitions())
        names.emplace_back(EditDistance(name, transition.name), transition.name);
    std::stable_sort(names.begin(), names.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::string result;
    for (std::size_t i = 0; i < std::min(kOffered, names.size()); ++i)
        result += (i ? ", \"" : "\"") + names[i].second + "\"";
    return result;
}

const hostkit::Transition *FindTransition(const hostkit::Plugin &plugin, const std::string &name) {
    const hostkit::PlainJoint *joint = hostkit::FindPlainJoint(name);
    return joint ? &joint->transition : plugin.Find(name);
}

} // namespace

fs::path DefaultPlugin() {
    const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path beside = folder / "libtp_Erase.so";
    const fs::path installed = folder / TP_INSTALLED_PLUGIN;
    return fs::exists(beside) || !fs::exists(installed) ? beside : installed.lexically_normal();
}

const hostkit::Transition &RequireTransition(const hostkit::Plugin &plugin,
                                             const std::string &name) {
    if (const hostkit::Transition *found = FindTransition(plugin, name))
        return *found;
    const hostkit::Likeness like = hostkit::FindLikeness(name);
    throw Failure("there is no transition \"" + name + "\"; " +
                  (like.name ? std::string("the nearest is \"") + like.name + '"' +
                                   (like.reverse ? " with --reverse" : "")
                             : "the nearest are " + NearestNames(plugin, name)));
}

FindJoint JointFinder(const hostkit::Plugin &plugin) {
    return [&plugin](const std::string &name) {
        if (const hostkit::Transition *transition = FindTransition(plugin, name))
            return KnownJoint{transition->name};
        const hostkit::Likeness like = hostkit::FindLikeness(name);
        return KnownJoint{like.name ? like.name : "", like.reverse};
    };
}

std::vector<const hostkit::Transition *> ChooseTransitions(const hostkit::Plugin &plugin,
                                                           const std::vector<std::string> &names) {
    std::vector<const hostkit::Transition *> chosen;
    for (const std::string &name : names) {
        chosen.push_back(&RequireTransition(plugin, name));
        if (!chosen.back()->yuv && !chosen.back()->rgb)
            throw Failure("\"" + chosen.back()->name + "\" has no functions in this plug-in");
    }
    if (names.empty())
        for (const hostkit::Transition &transition : plugin.Transitions())
            if (transition.yuv || transition.rgb)
                chosen.push_back(&transition);
    return chosen;
}

void RequirePath(const hostkit::Transition &transition, Path path) {
    if (HasPath(transition, path))
        return;
    const std::string lacking = path == Path::Yuv ? "yuv" : "rgb";
    const bool other = HasPath(transition, path == Path::Yuv ? Path::Rgb : Path::Yuv);
    throw Failure(
        "\"" + transition.name + "\" has no " + lacking + " path" +
        (other ? std::string("; use --path ") + (path == Path::Yuv ? "rgb" : "yuv") : ""));
}

std::vector<Path> ChoosePaths(const std::string &word) {
    return Choose<std::vector<Path>>(
        "--path", word,
        {{"yuv", {Path::Yuv}}, {"rgb", {Path::Rgb}}, {"both", {Path::Yuv, Path::Rgb}}});
}

const hostkit::Easing &RequireEasing(const std::string &name) {
    if (const hostkit::Easing *easing = hostkit::FindEasing(name))
        return *easing;
    std::string names;
    for (const hostkit::Easing &easing : hostkit::Easings())
        names += (names.empty() ? "" : ", ") + std::string(easing.name);
    throw Failure("--ease " + name + ": there are " + names);
}

CLI::Validator Between(double low, double high) {
    return {[low, high](std::string &text) {
                double number = 0;
                if (CLI::detail::lexical_cast(text, number) && number >= low && number <= high)
                    return std::string();
                std::ostringstream refusal;
                refusal << "give a number from " << low << " to " << high << ", not " << text;
                return refusal.str();
            },
            ""};
}

Size ParseSize(const std::string &text, const std::string &option) {
    constexpr int kLargest = 16384;
    Size size = {};
    const char *end = text.data() + text.size();
    const auto width = std::from_chars(text.data(), end, size.width);
    const bool cross = width.ptr != end && *width.ptr == 'x';
    const auto height = std::from_chars(width.ptr + cross, end, size.height);
    if (!cross || width.ec != std::errc() || height.ec != std::errc() || height.ptr != end ||
        size.width < 1 || size.height < 1 || size.width > kLargest || size.height > kLargest)
        throw Failure(option + " " + text + ": give the size as WIDTHxHEIGHT, each from 1 to " +
                      std::to_string(kLargest));
    return size;
}

} // namespace host
