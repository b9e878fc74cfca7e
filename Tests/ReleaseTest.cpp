// What leaves the tree: the Debian packages.

#include "Shell.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

/// Runs a command that must succeed and gives what it says.
std::string Output(const std::string &command) {
    const Outcome outcome = Shell(command);
    EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.output;
    return outcome.output;
}

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
        {"gstreamer1.0-tp-erase",
         {"/gstreamer-1.0/libgsttp_erase.so"},
         {"libtp-erase1 (= ", "libgstreamer-plugins-base1.0-0"}},
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
                     " -name '*.so*' -o -name transitions -type f); do readelf -d $file | grep "
                     "PATH; done; true"),
              "");
}

} // namespace
