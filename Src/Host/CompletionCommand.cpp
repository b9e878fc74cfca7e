/// `transitions completion` and `transitions manual`, which the build and the shells call.

#include "Joints.h"
#include "Words.h"

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>

namespace host {

namespace {

void PrintNames(const Program &program) {
    const hostkit::Plugin plugin(program.pluginFile);
    for (const hostkit::Transition &transition : plugin.Transitions())
        std::puts(transition.name.c_str());
    for (const hostkit::PlainJoint &joint : hostkit::PlainJoints())
        std::puts(joint.transition.name.c_str());
}

void PrintManual(const CLI::App &app, const std::string &file) {
    std::ifstream stream(file);
    std::stringstream prose;
    if (!(prose << stream.rdbuf()))
        throw Failure(file + ": cannot be read");
    std::fputs(Manual(app, prose.str()).c_str(), stdout);
}

} // namespace

void AddCompletion(CLI::App &app, Program &program) {
    const auto word = std::make_shared<std::string>();
    CLI::App *completion =
        app.add_subcommand("completion", "What the shells ask when a command is typed")->group("");
    completion->add_option("SHELL", *word, "bash, zsh, or names for the transitions' names")
        ->required();
    completion->callback([&app, &program, word] {
        enum class Answer { Bash, Zsh, Names };
        const Answer answer = Choose<Answer>(
            "completion", *word,
            {{"bash", Answer::Bash}, {"zsh", Answer::Zsh}, {"names", Answer::Names}});
        if (answer == Answer::Names)
            PrintNames(program);
        else
            std::fputs((answer == Answer::Bash ? BashCompletion : ZshCompletion)(app).c_str(),
                       stdout);
    });

    CLI::App *manual = app.add_subcommand("manual", "Make the manual page")->group("");
    manual->add_option("PROSE", *word, "Its text, without the options")->required();
    manual->callback([&app, word] { PrintManual(app, *word); });
}

} // namespace host
