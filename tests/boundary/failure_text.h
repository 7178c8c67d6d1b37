// The words of a failure, for comparison.
#pragma once

#include <exception>
#include <string>

// What an action raises as `Failure`, or "(nothing raised)"; another kind passes on.
template <class Failure = std::exception, class Action>
std::string failureText(Action&& action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "(nothing raised)";
}
