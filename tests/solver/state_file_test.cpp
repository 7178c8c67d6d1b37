// State files: what is written is read again, and anything else is refused in a sentence.
#include "solver/state_file.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

#include "solver/state_header.h"
#include "tests/support/bits.h"
#include "tests/support/failures.h"
#include "tests/support/flows.h"
#include "tests/support/scratch_folder.h"

namespace zeph {
namespace {

constexpr std::size_t lengthBytes = 8;

StateRecord someState() {
  Config config = test::configOf(16, Integrator::ifHeunRK3, OperatorKind::advective);
  config.seed = std::numeric_limits<std::uint64_t>::max();
  config.reynolds = 1234.5678901234567;
  config.start_spectrum = StartSpectrum::KM3;
  Solver solver(config);
  solver.advance(20);
  StateRecord state = solver.state();
  state.reynolds = 1.0 / 3.0;
  state.cfl = 0.1f;
  state.clock.steps = std::numeric_limits<std::uint64_t>::max();
  state.omega[3] = {-0.0f, std::numeric_limits<float>::denorm_min()};
  state.regulator = {.fastPalinstrophy = 0.1, .slowPalinstrophy = 1e-300, .previousError = -0.7};
  return state;
}

class StateFile : public testing::Test {
 protected:
  std::string path() const { return folder_.file("state"); }

  std::string bytes() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static std::string refusalOf(const std::string& content) {
    std::istringstream file(content);
    return test::runtimeFailure([&] { readState(file, content.size()); });
  }

  // The file of some state.
  std::string whole() const {
    writeStateFile(path(), someState());
    return bytes();
  }

  // The refusal of a file in whose header one text is replaced by another.
  std::string refusalWith(const std::string& text, const std::string& other) const {
    const std::string file = whole();
    std::uint64_t length = 0;
    std::memcpy(&length, file.data(), lengthBytes);
    std::string header = file.substr(lengthBytes, length);
    const std::size_t place = header.find(text);
    EXPECT_NE(place, std::string::npos) << text;
    header.replace(place, text.size(), other);
    sealStateHeader(header);
    return refusalOf(fileOf(header, file.substr(lengthBytes + length)));
  }

  static std::string fileOf(const std::string& header, const std::string& arrays) {
    const std::uint64_t length = header.size();
    std::string file(lengthBytes, '\0');
    std::memcpy(file.data(), &length, lengthBytes);
    return file + header + arrays;
  }

 private:
  test::ScratchFolder folder_;
};

TEST_F(StateFile, GivesBackEveryBit) {
  const StateRecord state = someState();
  writeStateFile(path(), state);
  const StateRecord found = readStateFile(path());
  EXPECT_EQ(found.config, state.config);
  EXPECT_EQ(found.reynolds, state.reynolds);
  EXPECT_EQ(found.cfl, state.cfl);
  EXPECT_EQ(found.initialTurnoverTime, state.initialTurnoverTime);
  EXPECT_TRUE(test::sameBits(found.clock.timeHigh, state.clock.timeHigh));
  EXPECT_TRUE(test::sameBits(found.clock.timeLow, state.clock.timeLow));
  EXPECT_TRUE(test::sameBits(found.clock.dt, state.clock.dt));
  EXPECT_TRUE(test::sameBits(found.clock.rawDt, state.clock.rawDt));
  EXPECT_TRUE(test::sameBits(found.clock.maxSpeed, state.clock.maxSpeed));
  EXPECT_EQ(found.clock.steps, state.clock.steps);
  EXPECT_EQ(found.clock.healthy, 1u);
  EXPECT_TRUE(test::sameBits(found.omega, state.omega));
  EXPECT_TRUE(test::sameBits(found.correction, state.correction));
  ASSERT_TRUE(found.regulator);
  EXPECT_EQ(found.regulator->fastPalinstrophy, 0.1);
  EXPECT_EQ(found.regulator->slowPalinstrophy, 1e-300);
  EXPECT_EQ(found.regulator->previousError, -0.7);
  EXPECT_EQ(found.device, state.device);
  EXPECT_FALSE(found.device.empty());
}

TEST_F(StateFile, HasItsArraysAtAMultipleOfEightBytes) {
  const std::string file = whole();
  std::uint64_t length = 0;
  std::memcpy(&length, file.data(), lengthBytes);
  EXPECT_EQ(length % 8, 0u);
  EXPECT_EQ(file.size(), lengthBytes + length + 2 * stateArrayBytes(test::configOf(16)));
}

TEST_F(StateFile, IsRefusedWithAnyBitChanged) {
  const std::string file = whole();
  for (std::size_t place = 0; place < file.size(); ++place) {
    std::string damaged = file;
    damaged[place] = static_cast<char>(damaged[place] ^ (1 << (place % 8)));
    ASSERT_NE(refusalOf(damaged), "nothing failed") << "byte " << place;
  }
}

TEST_F(StateFile, IsRefusedAtAnyOtherLength) {
  const std::string file = whole();
  for (std::size_t length = 0; length < file.size(); ++length)
    ASSERT_NE(refusalOf(file.substr(0, length)), "nothing failed") << length;
  const std::string all = std::to_string(file.size());
  EXPECT_EQ(refusalOf(file.substr(0, file.size() - 1)), "State file is truncated: it has " +
                                                            std::to_string(file.size() - 1) +
                                                            " of " + all + " bytes.");
  EXPECT_EQ(refusalOf(file.substr(0, 500)), "State file is truncated: it ends within its header.");
  EXPECT_EQ(refusalOf(file + "x"), "State file is too long: it has " +
                                       std::to_string(file.size() + 1) + " of " + all + " bytes.");
}

TEST_F(StateFile, OfAnotherKindIsRefused) {
  EXPECT_EQ(refusalOf(""), "Not a state file: it is too short.");
  EXPECT_EQ(refusalOf(std::string(4096, 'x')), "Not a state file: it has no header.");
  const std::string foreign = "Not a state file: its header is not that of a state.";
  EXPECT_EQ(refusalOf(std::string(4096, '\0')), foreign);
  EXPECT_EQ(refusalOf(fileOf(R"({"weight":{"dtype":"F32","shape":[1],"data_offsets":[0,4]}})",
                             std::string(4, '\0'))),
            foreign);
  EXPECT_EQ(refusalOf(fileOf(R"({"__metadata__":{"format":"pt"}})", "")), foreign);
  EXPECT_EQ(refusalOf(fileOf(R"({"__meta)", "")), foreign);
}

TEST_F(StateFile, OfAnotherLayoutIsRefused) {
  EXPECT_EQ(refusalWith(R"("version":"1")", R"("version":"2")"),
            "State file has layout 2, and this library reads 1.");
}

TEST_F(StateFile, NamesThePartThatIsDamaged) {
  std::string file = whole();
  const std::size_t array = stateArrayBytes(test::configOf(16));
  file[file.size() - 1] ^= 1;
  EXPECT_EQ(refusalOf(file),
            "State file is damaged: the checksum of \"compensation\" does not match.");
  file[file.size() - array - 1] ^= 1;
  EXPECT_EQ(refusalOf(file),
            "State file is damaged: the checksum of \"vorticity_spectrum\" does not match.");
  file[file.find("library")] ^= 1;
  EXPECT_EQ(refusalOf(file), "State file is damaged: the checksum of its header does not match.");
}

// Files with right checksums, as another program may write them.
TEST_F(StateFile, OfAnotherWriterIsHeldToItsRules) {
  const struct {
    const char *text, *other, *refusal;
  } cases[] = {
      {R"({\"resolution\":16)", R"({\"resolution\":15)", "its configuration is out of range"},
      {R"({\"resolution\":16)", R"({\"resolution\":16.5)",
       "\"resolution\" is not a whole number in its range"},
      {R"({\"resolution\":16)", R"({\"resolution\":4294967312)",
       "\"resolution\" is not a whole number in its range"},
      {R"({\"resolution\":16)", R"({\"resolution\":18)",
       "\"vorticity_spectrum\" is not the array of its configuration"},
      {R"(\"k0\":3,)", "", "it lacks \"k0\""},
      {R"(\"seed\":\"18446744073709551615\")", R"(\"seed\":\"18446744073709551616\")",
       "\"seed\" is not a number in its range"},
      {R"(\"seed\":\"1)", R"(\"seed\":\"-1)", "\"seed\" is not a number in its range"},
      {R"(\"ifHeunRK3\")", R"(\"rk4\")", "\"integrator\" is unknown"},
      {R"(\"advective\")", R"(3)", "\"operator\" is not a text"},
      {R"(\"fixed_dt\":null)", R"(\"fixed_dt\":-1)", "its configuration is out of range"},
      {R"(\"cfl\":0.1)", R"(\"cfl\":1e39,\"x\":0.1)", "\"cfl\" leaves single precision"},
      {R"({\"reynolds\":0.3333)", R"({\"reynolds\":-0.3333)", "its settings are out of range"},
      {R"(\"dt\":)", R"(\"dt\":-)", "\"dt\" is negative"},
      {R"(\"time_high\":)", R"(\"time_high\":-)", "\"time_high\" is negative"},
      {R"(\"time_low\":)", R"(\"time_low\":true,\"x\":)", "\"time_low\" is not a finite number"},
      {R"(\"steps\":)", R"(\"steps\":-)", "\"steps\" is not a whole number in its range"},
      {R"(\"previous_error\":)", R"(\"previous_error\":null,\"x\":)",
       "\"previous_error\" is not a finite number"},
      {R"("configuration":")", R"("configuration":"x)", "its configuration is not a JSON object"},
      {R"("configuration":)", R"("configuration":1,"x":)", "\"configuration\" is not a text"},
      {R"("device":)", R"("devise":)", "it lacks \"device\""},
      {R"("dtype":"F32")", R"("dtype":"F16")",
       "\"vorticity_spectrum\" is not the array of its configuration"},
      {R"("shape":[16,9,2])", R"("shape":[9,16,2])",
       "\"vorticity_spectrum\" is not the array of its configuration"},
      {R"("data_offsets":[0,)", R"("data_offsets":[8,)",
       "\"vorticity_spectrum\" is not the array of its configuration"},
      {R"(\"compensation\":\")", R"(\"compensation\":\"0)",
       "it has no checksum of \"compensation\""},
      {R"("compensation":{)", R"("compensations":{)", "it lacks \"compensation\""},
      {R"({"dtype")", R"({{"dtype")", "its header is not a JSON object"},
  };
  for (const auto& one : cases) {
    EXPECT_EQ(refusalWith(one.text, one.other),
              std::string("State file is invalid: ") + one.refusal + ".")
        << one.text;
  }
}

TEST_F(StateFile, WithANumberThatIsNotFiniteIsRefused) {
  StateRecord state = someState();
  state.omega[5].im = std::numeric_limits<float>::quiet_NaN();
  writeStateFile(path(), state);
  EXPECT_EQ(refusalOf(bytes()),
            "State file is invalid: \"vorticity_spectrum\" has a number that is not finite.");
}

TEST_F(StateFile, MayBeNestedAsDeepAsAHeaderCan) {
  const std::string deep(500000, '[');
  EXPECT_EQ(refusalWith(R"("shape":[16,9,2])", "\"shape\":" + deep + std::string(500000, ']')),
            "State file is invalid: \"vorticity_spectrum\" is not the array of its configuration.");
  EXPECT_EQ(refusalWith(R"("configuration":")", "\"configuration\":\"" + deep),
            "State file is invalid: its configuration is not a JSON object.");
}

TEST_F(StateFile, WithAHeaderThatIsTooLongIsRefused) {
  EXPECT_EQ(refusalWith("}} ", "}} " + std::string(1 << 20, ' ')),
            "Not a state file: it has no header.");
}

}  // namespace
}  // namespace zeph
