// What leaves the tree: the Debian packages, what shells complete, the manual page.

#include "Shell.h"

#include <regex>
#include <set>

namespace {

// Each package has its part, names what it needs, and all of them unpacked work together.
TEST(Packages, HoldTheirPartAndWorkTogether) {
    const Folder folder;
    Output("cpack --config " TP_BUILD "/CPackConfig.cmake -B " + (folder / "deb"));
    const struct {
        const char *package;
        std::vector<const char *> files, needs;
    } kPackages[] = {
        {"libtp-erase1",
         {"libtp_Erase.so.1 -> ", "libtp_Erase.so -> "},
         {"libopencv-core", "libstdc++6"}},
        {"libtp-erase-dev",
         {"/tp_Erase.h", "/tp_Erase.pc", "/tp_EraseConfig.cmake"},
         {"libtp-erase1 (= "}},
        {"transitions",
         {"/usr/bin/transitions", "/man1/transitions.1.gz", "/changelog.Debian.gz"},
         {"libtp-erase1 (= ", "libavformat", "libavfilter", "libcairo2"}},
        {"mlt-tp-erase",
         {"/mlt-7/libmlttp_erase.so", "/tp_erase.turn.xml"},
         {"libtp-erase1 (= ", "libmlt7"}},
#ifdef TP_GSTREAMER
        {"gstreamer1.0-tp-erase",
         {"/gstreamer-1.0/libgsttp_erase.so"},
         {"libtp-erase1 (= ", "libgstreamer-plugins-base1.0-0"}},
#endif
#ifdef TP_MAPS
        {"tp-erase-lumas",
         {"/kdenlive/lumas/HD/tp_erase-bar.pgm", "/lumas/9_16/", "/tp_erase-lumas.zip"},
         {}},
#endif
    };
    for (const auto &[package, files, needs] : kPackages) {
        const std::string file = (folder / "deb") + "/" + package + "_*.deb";
        const std::string contents = Output("dpkg-deb -c " + file);
        for (const char *name : files)
            EXPECT_NE(contents.find(name), std::string::npos) << package << name << contents;
        const std::string depends = Output("dpkg-deb -f " + file + " Depends");
        for (const char *need : needs)
            EXPECT_NE(depends.find(need), std::string::npos) << package << ": " << depends;
        Output("dpkg-deb -x " + file + " " + (folder / "root"));
    }
    const std::string libraries = "$(dirname " + (folder / "root") + "/usr/lib/*/libtp_Erase.so)";
    EXPECT_EQ(Output("LD_LIBRARY_PATH=" + libraries + " " + (folder / "root") +
                     "/usr/bin/transitions list"),
              Output(TP_PROGRAM " list"));
    // Programs find the libraries in the system's folders, so none of them tells where.
    EXPECT_EQ(Output("for file in $(find " + (folder / "root") +
                     " -name '*.so*' -o -path '*/bin/transitions'); do readelf -d $file | grep "
                     "PATH; done; true"),
              "");
}

/// What bash offers behind these words, the last of which is being typed.
std::string Offered(const std::string &words) {
    return Output("cd " TP_TEST_SOURCE " && bash -c 'source " TP_BUILD
                  "/share/transitions/transitions.bash; COMP_WORDS=(transitions " +
                  words +
                  "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _transitions " TP_PROGRAM
                  "; echo ${COMPREPLY[@]}'");
}

TEST(Completion, OffersInBashWhatCanStandThere) {
    const struct {
        const char *words, *offered;
    } kCases[] = {
        {"ren", "render"},
        {"--ver", "--version"},
        {"render --tr", "--transition"},
        {"render --path \"\"", "yuv rgb"},
        {"render --path = r", "rgb"},
        {"render --fit =", "contain cover stretch blur"},
        {"render -t dis", "dissolve"},
        {"render -t an", "any"},
        {"render -t NAM", ""},
        {"sheet -t an", ""},
        {"bench --transition lin", "Linear\\ Wipe"},
        {"sheet -t linear\\\\\\ w", "Linear\\ Wipe"},
        {"info door", "DoorWay"},
        {"info DOOR", "DoorWay"},
        {"sheet --ease bo", "bounce"},
        {"render --ease in-o", "in-out in-out-cubic"},
        {"render Data/fra", "Data/frames.csv"},
        {"render --music Data/ex", "Data/exports.txt"},
        {"render --size 1", ""},
        {"--plugin x.so sheet --colu", "--columns"},
        {"--plugin = x.so sheet --colu", "--columns"},
        {"compl", ""},
    };
    for (const auto &[words, offered] : kCases)
        EXPECT_EQ(Offered(words), std::string(offered) + "\n") << words;
}

TEST(Completion, OffersInZshWhatCanStandThere) {
    const Folder folder;
    Write(folder / "transitions", "#!/bin/sh\n"
                                  "[ \"$1\" = completion ] && exec " TP_PROGRAM " \"$@\"\n"
                                  "echo \"GOT:$*\"\n");
    Output("chmod +x " + (folder / "transitions"));
    EXPECT_EQ(
        Output("timeout 60 zsh -f " TP_TEST_SOURCE "/Complete.zsh " + folder.path.string() +
               " " TP_BUILD "/share/transitions 'transitions ben' "
               "'transitions render --path r' 'transitions render -t Lin' "
               "'transitions info door' 'transitions sheet --rev' "
               "'transitions sheet --ease bo' 'transitions render -t an' "
               "'transitions render --path=r' 'transitions render --frames 1 --rever'"),
        "bench\nrender --path rgb\nrender -t Linear Wipe\ninfo DoorWay\nsheet --reverse\n"
        "sheet --ease bounce\nrender -t any\nrender --path=rgb\nrender --frames 1 --reverse\n");
}

/// What matches a pattern's group in a text.
std::set<std::string> Found(const std::string &text, const std::string &pattern) {
    const std::regex regex(pattern);
    return {std::sregex_token_iterator(text.begin(), text.end(), regex, 1), {}};
}

// A new command is in the manual and completed before anybody thinks of it.
TEST(Completion, AndManualKnowEveryCommandAndOption) {
    const Folder folder;
    Write(folder / "prose", "@version@\n.SS list\n.\\\" options list\n.\\\" further commands\n");
    const std::string bare = Output(TP_PROGRAM " manual ", folder / "prose");
    EXPECT_TRUE(bare.starts_with(Output(TP_PROGRAM " --version")));
    EXPECT_EQ(bare.find(".SS list"), bare.rfind(".SS list"));
    EXPECT_NE(bare.find("\\fB\\-\\-json\\fR"), std::string::npos) << "hyphens that can be copied";
    EXPECT_NE(bare.find("\nDefault: "), std::string::npos);
    std::string manual = Output(TP_PROGRAM " manual " TP_TEST_SOURCE "/../Docs/transitions.1.in");
    for (std::size_t at; (at = manual.find("\\f")) != std::string::npos;)
        manual.erase(at, 3);  // a change of font
    std::erase(manual, '\\'); // a hyphen is written \- there
    std::string help = Output(TP_PROGRAM " --help");
    const auto commands = Found(help.substr(help.find("Subcommands:")), "\n  ([^ ,]+)");
    ASSERT_GE(commands.size(), 6u);
    for (const std::string &command : commands) {
        EXPECT_NE(manual.find(".SS " + command), std::string::npos) << command;
        EXPECT_NE(bare.find(".SS " + command + "\n"), std::string::npos) << command;
        const std::string own = Output(TP_PROGRAM " ", command, " --help");
        const std::string offered = Offered(command + " -");
        for (const std::string &option : Found(own, "\n  (-[^ ,]*)"))
            EXPECT_NE((" " + offered).find(" " + option), std::string::npos) << command << option;
        help += own;
    }
    const std::string option = "(--[a-z0-9][a-z0-9-]*)";
    EXPECT_EQ(Found(manual, option), Found(help, option));
}

} // namespace
