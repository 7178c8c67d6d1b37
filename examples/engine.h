// The library's engine for C++: freed when it goes out of scope, with failures as exceptions.
#pragma once

#include <zephane.h>

#include <memory>
#include <stdexcept>
#include <string>

// Takes over a text of the library's, and frees it.
inline std::string taken(char* text) {
  std::string copy = text ? text : R"({"error":"out of memory"})";
  zp_string_free(text);
  return copy;
}

// A reply that is not a failure.
inline std::string checked(char* reply) {
  std::string text = taken(reply);
  if (text.rfind(R"({"error":)", 0) == 0) {
    throw std::runtime_error(text);
  }
  return text;
}

class Engine {
 public:
  // The configuration is a JSON object.
  explicit Engine(const std::string& configuration) {
    char* error = nullptr;
    engine_.reset(zp_engine_create(configuration.c_str(), &error));
    if (!engine_) {
      throw std::runtime_error(taken(error));
    }
  }

  // The reply to a request; both are JSON objects.
  std::string call(const std::string& request) const {
    return checked(zp_engine_call(engine_.get(), request.c_str()));
  }

 private:
  struct Destroy {
    void operator()(zp_engine* engine) const { zp_engine_destroy(engine); }
  };
  std::unique_ptr<zp_engine, Destroy> engine_;
};
