#include "render/cairo/cairo_functions.h"

#include <stdexcept>
#include <string>

#include "platform/dynamic_library.h"
#include "platform/fork.h"

namespace zeph::cairo {
namespace {

class Source {
 public:
  explicit Source(const char* name) : name_(name), handle_(platform::openLibrary(name)) {
    if (handle_ == nullptr)
      throw std::runtime_error(platform::loadingFailure(std::string(name) + " was not found."));
  }

  template <class Function>
  void find(Function& function, const char* symbol) const {
    if (!platform::find(handle_, symbol, function))
      throw std::runtime_error(std::string(name_) + " lacks " + symbol + ".");
  }

 private:
  const char* name_;
  void* handle_;
};

Library* findLibrary() {
  Library functions{};
#define ZEPH_FIND(name) source.find(functions.name, #name)
  {
    const Source source("libcairo.so.2");
    ZEPH_CAIRO_FUNCTIONS(ZEPH_FIND)
  }
  {
    const Source source("libpango-1.0.so.0");
    ZEPH_PANGO_FUNCTIONS(ZEPH_FIND)
  }
  {
    const Source source("libpangocairo-1.0.so.0");
    ZEPH_PANGOCAIRO_FUNCTIONS(ZEPH_FIND)
  }
  {
    const Source source("libgobject-2.0.so.0");
    ZEPH_FIND(g_object_unref);
  }
#undef ZEPH_FIND
  return new Library(functions);
}

platform::MadeOnce<Library> functionsOfProcess;

}  // namespace

const Library& library() {
  return functionsOfProcess.get(findLibrary);
}

}  // namespace zeph::cairo
