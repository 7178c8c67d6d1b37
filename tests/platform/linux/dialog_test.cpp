#include "platform/dialog.h"

#include "tests/platform/linux/fake_programs.h"

namespace zeph::platform {
namespace {

class SaveDialog : public test::FakePrograms {
 protected:
  std::string pathOf(const std::string& name) const { return (folder / name).string(); }
  void makeFile(const std::string& name) const { std::ofstream(folder / name) << "kept"; }

  // The path that was chosen, or how else it ended.
  std::string ask() const {
    const SaveAnswer answer =
        askSavePath({"Save PNG", "2DZephane.png", "PNG image", "png", nullptr});
    if (answer.outcome == SaveOutcome::chosen) return answer.path;
    return answer.outcome == SaveOutcome::cancelled ? "cancelled" : "failed";
  }
};

TEST_F(SaveDialog, AddsTheSuffixToANameWithoutOne) {
  makeChooser("zenity", pathOf("flow"));
  EXPECT_EQ(ask(), pathOf("flow.png"));
}

TEST_F(SaveDialog, LeavesOtherSuffixesAlone) {
  for (const char* name : {"flow.png", "flow.PNG", "flow.jpeg", "a.b.c"}) {
    makeChooser("zenity", pathOf(name));
    EXPECT_EQ(ask(), pathOf(name));
  }
}

TEST_F(SaveDialog, LooksForTheSuffixInTheNameAlone) {
  makeChooser("zenity", "/runs.2024/flow");
  EXPECT_EQ(ask(), "/runs.2024/flow.png");
}

TEST_F(SaveDialog, AsksAgainWhenTheSuffixLeadsToAnExistingFile) {
  makeFile("flow.png");
  makeProgram("zenity",
              "for word in \"$@\"; do\n"
              "  case $word in --filename=/*) echo '" +
                  pathOf("flow.png") +
                  "'; exit;;\n"
                  "  esac\ndone\necho '" +
                  pathOf("flow") + "'");
  EXPECT_EQ(ask(), pathOf("flow.png"));
  EXPECT_EQ(wordsOf("zenity")[4], "--filename=" + pathOf("flow.png"));
}

TEST_F(SaveDialog, ReplacesNoFileThatTheUserHasNotBeenAskedAbout) {
  makeFile("flow.png");
  makeChooser("zenity", pathOf("flow"));
  EXPECT_EQ(ask(), "cancelled");
}

TEST_F(SaveDialog, TakesAnExistingFileFromTheDialog) {
  makeFile("flow.png");
  makeChooser("zenity", pathOf("flow.png"));
  EXPECT_EQ(ask(), pathOf("flow.png"));
}

TEST_F(SaveDialog, CanBeCancelled) {
  makeProgram("zenity", "exit 1");
  EXPECT_EQ(ask(), "cancelled");
}

TEST_F(SaveDialog, FailsWithoutADialogProgram) {
  EXPECT_EQ(ask(), "failed");
}

TEST_F(SaveDialog, FailsIfTheBusCannotBeReached) {
  for (const char* address : {"unix:path=/nowhere/bus", "nonsense", "autolaunch:"}) {
    setVariable("DBUS_SESSION_BUS_ADDRESS", address);
    EXPECT_EQ(ask(), "failed") << address;
  }
}

}  // namespace
}  // namespace zeph::platform
