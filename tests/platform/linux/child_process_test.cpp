// Running a program does not change the host: its signals, descriptors and streams.
#include "platform/linux/child_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "tests/platform/linux/fake_programs.h"

namespace zeph::platform {
namespace {

class ChildProcess : public test::FakePrograms {
 protected:
  // Sets how the host handles SIGCHLD, while this object exists.
  class Decision {
   public:
    explicit Decision(void (*handler)(int)) {
      struct sigaction wanted {};
      wanted.sa_handler = handler;
      sigaction(SIGCHLD, &wanted, &before_);
    }
    ~Decision() { sigaction(SIGCHLD, &before_, nullptr); }

   private:
    struct sigaction before_ {};
  };

  static void (*handler())(int) {
    struct sigaction now {};
    sigaction(SIGCHLD, nullptr, &now);
    return now.sa_handler;
  }
};

void collectEverything(int) {
  const int before = errno;
  while (waitpid(-1, nullptr, WNOHANG) > 0) {
  }
  errno = before;
}

TEST_F(ChildProcess, GivesItsOutputAndItsExitCode) {
  makeProgram("speak", "printf 'a\\0b\\n'; printf lost >&2; exit 7");
  testing::internal::CaptureStderr();
  const auto finished = runProgram({"speak", "", "two words", "$HOME"});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_TRUE(finished);
  EXPECT_EQ(finished->output, std::string("a\0b\n", 4));
  EXPECT_EQ(finished->exitCode, 7);
  EXPECT_FALSE(finished->crashed);
  EXPECT_EQ(wordsOf("speak"), (std::vector<std::string>{"", "two words", "$HOME"}));
}

TEST_F(ChildProcess, ThatCrashesHasNoExitCode) {
  makeProgram("fall", "kill -ABRT $$");
  const auto finished = runProgram({"fall"});
  ASSERT_TRUE(finished);
  EXPECT_TRUE(finished->crashed);
  EXPECT_EQ(finished->exitCode, std::nullopt);
}

TEST_F(ChildProcess, ThatIsMissingGivesNoResult) {
  EXPECT_FALSE(runProgram({"missing"}));
  EXPECT_FALSE(runProgram({(folder / "bin" / "missing").string()}));
}

TEST_F(ChildProcess, HasEmptyInput) {
  makeProgram("read", "read line && exit 3; exit 4");
  EXPECT_EQ(runProgram({"read"})->exitCode, 4);
}

TEST_F(ChildProcess, LosesItsExitCodeToAHostThatIgnoresOrCollectsItsChildren) {
  makeProgram("speak", "echo text; exit 7");
  for (void (*const wanted)(int) : {SIG_IGN, collectEverything}) {
    const Decision decision(wanted);
    const auto finished = runProgram({"speak"});
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->output, "text\n");
    if (finished->exitCode) {
      EXPECT_EQ(wanted, collectEverything);  // which may come too late
    }
    EXPECT_FALSE(finished->crashed);
    EXPECT_EQ(handler(), wanted);
  }
}

TEST_F(ChildProcess, LeavesOtherChildrenToTheHost) {
  const pid_t other = fork();
  if (other == 0) _exit(9);
  makeProgram("speak", "exit 0");
  EXPECT_EQ(runProgram({"speak"})->exitCode, 0);
  int status = 0;
  ASSERT_EQ(waitpid(other, &status, 0), other);
  EXPECT_EQ(WEXITSTATUS(status), 9);
}

TEST_F(ChildProcess, HasTheUsualSignals) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &before);
  const Decision decision(SIG_IGN);
  // A shell cannot undo what it has inherited as ignored.
  makeProgram("wait", "trap 'echo child' CHLD; trap 'echo pipe' PIPE; /bin/true; kill -PIPE $$");
  const auto finished = runProgram({"wait"});
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ASSERT_TRUE(finished);
  EXPECT_NE(finished->output.find("pipe"), std::string::npos);
  EXPECT_NE(finished->output.find("child"), std::string::npos);
}

TEST_F(ChildProcess, LeaksNoDescriptor) {
  const auto next = [] {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(descriptor);
    return descriptor;
  };
  makeProgram("speak", "echo text");
  const int before = next();
  runProgram({"speak"});
  runProgram({"missing"});
  EXPECT_EQ(next(), before);
}

TEST_F(ChildProcess, WorksForAHostWithoutStreams) {
  makeProgram("speak", "read line; echo text; echo lost >&2; exit 7");
  const pid_t host = fork();
  if (host == 0) {
    for (const int stream : {0, 1, 2}) close(stream);
    const auto finished = runProgram({"speak"});
    _exit(finished && finished->output == "text\n" && finished->exitCode == 7 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(host, &status, 0), host);
  EXPECT_EQ(status, 0);
}

TEST_F(ChildProcess, SeesTheVariablesThatItIsGiven) {
  setVariable("WINDOWID", "1");
  setVariable("KEPT", "yes");
  makeProgram("tell", "echo \"$WINDOWID $KEPT $NEW\"");
  EXPECT_EQ(runProgram({"tell"}, {"WINDOWID=2", "NEW=a b"})->output, "2 yes a b\n");
  EXPECT_EQ(runProgram({"tell"})->output, "1 yes \n");
}

}  // namespace
}  // namespace zeph::platform
