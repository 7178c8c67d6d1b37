#include <gtest/gtest.h>

#include "platform/linux/dialog_backends.h"
#include "tests/platform/linux/fake_programs.h"

namespace zeph::platform {
namespace {

using Words = std::vector<std::string>;

class DialogPrograms : public test::FakePrograms {
 protected:
  std::optional<SaveAnswer> ask() const { return askDialogProgram(question); }

  std::optional<SaveOutcome> outcome() const {
    const auto answer = ask();
    return answer ? std::optional(answer->outcome) : std::nullopt;
  }

  SaveQuestion question = {"Save PNG", "2DZephane.png", "PNG image", "png", nullptr};
};

TEST_F(DialogPrograms, ReceiveTheTitleTheNameAndTheFilter) {
  const Words common = {"--confirm-overwrite", "--title=Save PNG", "--filename=2DZephane.png",
                        "--file-filter=PNG image | *.png"};
  Words zenity = {"--file-selection", "--save"};
  zenity.insert(zenity.end(), common.begin(), common.end());
  Words yad = {"--file", "--save"};
  yad.insert(yad.end(), common.begin(), common.end());
  const Words kdialog = {"--title", "Save PNG", "--getsavefilename",
                         std::filesystem::absolute("2DZephane.png").string(), "PNG image (*.png)"};
  for (const auto& [name, words] : {std::pair("yad", yad), std::pair("qarma", zenity),
                                    std::pair("kdialog", kdialog), std::pair("zenity", zenity)}) {
    makeChooser(name, "/flow.png");
    EXPECT_EQ(outcome(), SaveOutcome::chosen);
    EXPECT_EQ(wordsOf(name), words);
  }
}

TEST_F(DialogPrograms, BelongToTheWindowOfTheQuestion) {
  question.parent = reinterpret_cast<void*>(0x2a00007);
  makeProgram("zenity", "exit 5");
  makeChooser("kdialog", "/flow.png");
  EXPECT_EQ(outcome(), SaveOutcome::chosen);
  EXPECT_EQ(windowOf("zenity"), "44040199");
  EXPECT_EQ(wordsOf("kdialog")[0], "--attach");
  EXPECT_EQ(wordsOf("kdialog")[1], "44040199");
}

TEST_F(DialogPrograms, TakeNoWindowFromTheHostsTerminalInstead) {
  setVariable("WINDOWID", "17");
  question.parent = reinterpret_cast<void*>(0x2a00007);
  makeChooser("zenity", "/flow.png");
  EXPECT_EQ(outcome(), SaveOutcome::chosen);
  EXPECT_EQ(windowOf("zenity"), "44040199");
}

TEST_F(DialogPrograms, GiveAnyPathThatAUserCanChoose) {
  for (const std::string path :
       {"/flow.png", "/a dir/two  blanks .png", "/Wirbelst\u00e4rke/\u6f22\u5b57 \u03c9.png",
        "/two\nlines.png", "/ending in one\n", R"(/$(id) `id` "quoted" \n %s.png)"}) {
    makeChooser("zenity", path);
    const auto answer = ask();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->outcome, SaveOutcome::chosen);
    EXPECT_EQ(answer->path, path);
  }
}

TEST_F(DialogPrograms, GiveVeryLongPathsWhole) {
  const std::string path = "/" + std::string(100000, 'x') + ".png";
  makeProgram("zenity", "printf /; printf '%099999d' 0 | tr 0 x; printf 'x.png\\n'");
  setVariable("PATH", (folder / "bin").string() + ":/usr/bin:/bin");
  const auto answer = ask();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->path, path);
}

TEST_F(DialogPrograms, CanBeCancelled) {
  makeProgram("zenity", "exit 1");
  makeChooser("kdialog", "/flow.png");
  EXPECT_EQ(outcome(), SaveOutcome::cancelled);
  EXPECT_FALSE(wasRun("kdialog"));
}

TEST_F(DialogPrograms, AreCancelledByClosingTheirWindow) {
  makeProgram("yad", "exit 252");
  EXPECT_EQ(outcome(), SaveOutcome::cancelled);
}

TEST_F(DialogPrograms, ThatFailOrCrashAreFollowedByTheNext) {
  makeProgram("zenity", "echo '/half a path'; exit 255");
  makeProgram("kdialog", "kill -SEGV $$");
  makeProgram("qarma", "kill -KILL $$");
  makeChooser("yad", "/flow.png");
  EXPECT_EQ(outcome(), SaveOutcome::chosen);
  EXPECT_TRUE(wasRun("zenity") && wasRun("kdialog") && wasRun("qarma"));
  makeProgram("yad", "exit 70");
  EXPECT_EQ(outcome(), std::nullopt);
}

TEST_F(DialogPrograms, FailUnlessTheyAnswerWithAnAbsolutePath) {
  for (const char* answer : {"flow.png", "", "smb://host/flow.png"}) {
    makeChooser("zenity", answer);
    EXPECT_EQ(outcome(), SaveOutcome::failed) << answer;
  }
}

TEST_F(DialogPrograms, MayBeMissing) {
  EXPECT_EQ(outcome(), std::nullopt);
  std::ofstream(folder / "bin" / "zenity") << "no program\n";
  EXPECT_EQ(outcome(), std::nullopt);
}

TEST_F(DialogPrograms, AreNotRunWithoutADisplay) {
  makeProgram("zenity", "exit 1");
  setVariable("DISPLAY", "");
  EXPECT_EQ(outcome(), std::nullopt);
  EXPECT_FALSE(wasRun("zenity"));
  setVariable("WAYLAND_DISPLAY", "wayland-0");
  EXPECT_EQ(outcome(), SaveOutcome::cancelled);
}

}  // namespace
}  // namespace zeph::platform
