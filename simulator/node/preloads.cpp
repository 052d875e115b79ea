#include "simulator/node/preloads.h"

#include <dlfcn.h>

#include "common/preload.h"
#include "simulator/node/fronterror.h"

namespace VorelKestrel::Simulator {
namespace {

constexpr const char* kUmockdevLibrary = "libumockdev-preload.so.0";

std::string umockdevLibrary()
{
    void* library = dlopen(kUmockdevLibrary, RTLD_LAZY | RTLD_LOCAL);
    if (library == nullptr)
        throw FrontError(std::string("cannot find ") + kUmockdevLibrary + "; install Debian's package umockdev");
    dlclose(library);
    return kUmockdevLibrary;
}

} // namespace

std::string simulatorsLibrary()
{
    return preloadLibrary(PRELOAD_BUILT, PRELOAD_INSTALLED);
}

std::string preloads(const std::string& library)
{
    return preloadsWith(library + ":" + umockdevLibrary());
}

} // namespace VorelKestrel::Simulator
