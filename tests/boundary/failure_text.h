// The text of a failure, for comparison.
#pragma once

#include <exception>
#include <string>

// The text of the `Failure` that an action throws, or "(nothing raised)". Others propagate.
template <class Failure = std::exception, class Action>
std::string failureText(Action&& action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.what();
  }
  return "(nothing raised)";
}
