// The check of a transform against known modes accepts correct transforms and rejects all others.
#include "device/transform_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "tests/device/requests.h"

namespace zeph {
namespace {

// The shapes that a solver of resolution n has.
TransformRequest padded(int n, int batch) {
  const int m = 3 * n / 2;
  return test::requestOf(m, test::paddedStride(m), n / 2, batch);
}
TransformRequest grid(int n, int batch) {
  return test::requestOf(n, n / 2 + 1, 0, batch);
}
TransformRequest complex(int n, int batch) {
  return test::requestOf(n, n, 0, batch, false);
}

struct Owned {
  explicit Owned(const TransformRequest& request) {
    EXPECT_EQ(transformCreate(request, &transform), 0);
  }
  ~Owned() { transformDestroy(transform); }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;

  Transform* transform = nullptr;
};

bool isRight(Transform* transform, const TransformRequest& request) {
  const TransformTrial trial = tryTransform(transform, transformAppend, request);
  EXPECT_EQ(trial.code, 0);
  return trial.isRight;
}

bool isRight(const TransformRequest& request) {
  const Owned made(request);
  return isRight(made.transform, request);
}

// A wrong transform: a function on the floats of the buffer that replaces the correct one.
using Append = std::function<int(Transform* transform, float* floats, bool isInverse)>;
Append fault;

int appendWithFault(Transform* transform, void* buffer, bool isInverse) {
  return fault(transform, static_cast<float*>(buffer), isInverse);
}

TransformTrial trialWith(const TransformRequest& request, Append append) {
  const Owned made(request);
  fault = std::move(append);
  return tryTransform(made.transform, appendWithFault, request);
}

bool isRightWith(const TransformRequest& request, Append append) {
  const TransformTrial trial = trialWith(request, std::move(append));
  EXPECT_EQ(trial.code, 0);
  return trial.isRight;
}

int right(Transform* transform, float* floats, bool isInverse) {
  return transformAppend(transform, floats, isInverse);
}

std::vector<TransformRequest> someRequests() {
  return {padded(16, 2), padded(18, 4), grid(16, 1), grid(18, 3), complex(16, 1), complex(27, 1)};
}

// Calls body(request) for each, with its shape in the trace.
template <class Body>
void forEachRequest(const std::vector<TransformRequest>& requests, Body body) {
  for (const TransformRequest& request : requests) {
    SCOPED_TRACE(testing::Message()
                 << "size " << request.size << ", cutoff " << request.cutoff << ", batch "
                 << request.batch << ", real " << request.realToComplex);
    body(request);
  }
}

TEST(TransformCheck, AcceptsCorrectTransformsOfEveryShape) {
  std::vector<TransformRequest> requests;
  for (const int n : {16, 18, 22, 34, 64, 150, 256}) {
    for (int batch = 1; batch <= 4; ++batch) {
      requests.insert(requests.end(), {padded(n, batch), grid(n, batch), complex(n, batch)});
    }
  }
  for (const int n : {15, 27, 61, 225}) {
    requests.insert(requests.end(), {grid(n, 2), complex(n, 2)});
  }
  forEachRequest(requests, [](const TransformRequest& request) { EXPECT_TRUE(isRight(request)); });
}

TEST(TransformCheck, AcceptsATransformWithoutARemovedBand) {
  const TransformRequest request = padded(18, 2);
  TransformRequest whole = request;
  whole.cutoff = 0;
  const Owned made(whole);
  EXPECT_TRUE(isRight(made.transform, request));
}

TEST(TransformCheck, UsesOnlyTheMemoryGiven) {
  TransformRequest request = padded(18, 2);
  std::vector<float> memory(2 * test::fieldFloats(request) + 1,
                            std::numeric_limits<float>::quiet_NaN());
  memory.back() = 12345.0f;
  request.scratch = memory.data();
  const void* seen = nullptr;
  EXPECT_TRUE(isRightWith(request, [&](Transform* transform, float* floats, bool isInverse) {
    seen = floats;
    return right(transform, floats, isInverse);
  }));
  EXPECT_EQ(seen, memory.data());
  EXPECT_EQ(memory.back(), 12345.0f);
}

TEST(TransformCheck, RejectsTheWrongDirection) {
  forEachRequest(someRequests(), [](const TransformRequest& request) {
    EXPECT_FALSE(isRightWith(request, [](Transform* transform, float* floats, bool isInverse) {
      return right(transform, floats, !isInverse);
    }));
  });
}

TEST(TransformCheck, RejectsAScaledTransformInEitherDirection) {
  forEachRequest(someRequests(), [](const TransformRequest& request) {
    const std::size_t count = test::fieldFloats(request) * static_cast<std::size_t>(request.batch);
    const float samples = static_cast<float>(request.size * request.size);
    for (const bool scalesInverse : {false, true}) {
      for (const float factor : {1 / samples, 1.01f, -1.0f, 0.0f}) {
        EXPECT_FALSE(isRightWith(request,
                                 [=](Transform* transform, float* floats, bool isInverse) {
                                   const int code = right(transform, floats, isInverse);
                                   if (isInverse == scalesInverse)
                                     std::for_each(floats, floats + count,
                                                   [=](float& value) { value *= factor; });
                                   return code;
                                 }))
            << scalesInverse << " " << factor;
      }
    }
  });
}

TEST(TransformCheck, RejectsSwappedFields) {
  forEachRequest({padded(16, 2), grid(18, 3), complex(16, 4)}, [](const TransformRequest& request) {
    const auto field = static_cast<std::ptrdiff_t>(test::fieldFloats(request));
    const std::ptrdiff_t last = request.batch - 1;
    for (const bool inInverse : {false, true}) {
      EXPECT_FALSE(isRightWith(request, [=](Transform* transform, float* floats, bool isInverse) {
        const int code = right(transform, floats, isInverse);
        if (isInverse == inInverse) std::swap_ranges(floats, floats + field, floats + last * field);
        return code;
      }));
    }
  });
}

TEST(TransformCheck, RejectsASkippedField) {
  forEachRequest({padded(16, 2), grid(18, 3)}, [](const TransformRequest& request) {
    TransformRequest fewer = request;
    fewer.batch = request.batch - 1;
    const Owned made(fewer);
    EXPECT_FALSE(isRight(made.transform, request));
  });
}

TEST(TransformCheck, RejectsABandThatIsCutTooWide) {
  for (const int n : {16, 18, 34, 256}) {
    const TransformRequest request = padded(n, 2);
    TransformRequest wider = request;
    wider.cutoff = request.cutoff - 1;
    const Owned made(wider);
    EXPECT_FALSE(isRight(made.transform, request)) << n;
  }
}

// In one direction the modes of the highest column or of the highest row are lost.
TEST(TransformCheck, RejectsTheLossOfTheHighestModes) {
  forEachRequest(someRequests(), [](const TransformRequest& request) {
    const int last = (request.cutoff != 0 ? request.cutoff : (request.size + 1) / 2) - 1;
    const auto stride = static_cast<std::size_t>(2 * request.rowStride);
    const auto lose = [=](float* floats, bool isColumn) {
      for (int j = 0; j < request.size; ++j) {
        float* row = floats + static_cast<std::size_t>(j) * stride;
        if (isColumn) std::fill_n(row + 2 * last, 2, 0.0f);
        if (!isColumn && j == last) std::fill_n(row, stride, 0.0f);
      }
    };
    for (const bool inInverse : {false, true}) {
      for (const bool isColumn : {false, true}) {
        EXPECT_FALSE(isRightWith(request,
                                 [=](Transform* transform, float* floats, bool isInverse) {
                                   if (isInverse && inInverse) lose(floats, isColumn);
                                   const int code = right(transform, floats, isInverse);
                                   if (!isInverse && !inInverse) lose(floats, isColumn);
                                   return code;
                                 }))
            << inInverse << " " << isColumn;
      }
    }
  });
}

TEST(TransformCheck, RejectsNaN) {
  forEachRequest(someRequests(), [](const TransformRequest& request) {
    for (const bool inInverse : {false, true}) {
      EXPECT_FALSE(isRightWith(request, [=](Transform* transform, float* floats, bool isInverse) {
        const int code = right(transform, floats, isInverse);
        if (isInverse == inInverse) floats[0] = std::numeric_limits<float>::quiet_NaN();
        return code;
      }));
    }
  });
}

TEST(TransformCheck, RejectsATransformThatDoesNothing) {
  forEachRequest(someRequests(), [](const TransformRequest& request) {
    EXPECT_FALSE(isRightWith(request, [](Transform*, float*, bool) { return 0; }));
  });
}

TEST(TransformCheck, ReturnsTheErrorOfAFailedTransformAndStops) {
  forEachRequest(someRequests(), [](const TransformRequest& request) {
    for (const bool inInverse : {false, true}) {
      int calls = 0;
      const TransformTrial trial =
          trialWith(request, [&](Transform* transform, float* floats, bool isInverse) {
            ++calls;
            return isInverse == inInverse ? 7 : right(transform, floats, isInverse);
          });
      EXPECT_EQ(trial.code, 7);
      EXPECT_FALSE(trial.isRight);
      EXPECT_EQ(calls, inInverse ? 1 : 2);
    }
  });
}

}  // namespace
}  // namespace zeph
