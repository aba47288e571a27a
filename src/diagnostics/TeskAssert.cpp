#include "diagnostics/TeskAssert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tesk {
namespace {

void printAssertionFailure(const AssertionFailure& failure) {
    std::fprintf(stderr, "*** Assertion failure in %s, %s:%d\n*** %s\n", failure.function.c_str(),
                 failure.file.c_str(), failure.line, failure.description.c_str());
    std::fflush(stderr);
}

std::atomic<AssertionHandler> currentHandler{&printAssertionFailure};

} // namespace

AssertionHandler setAssertionHandler(AssertionHandler handler) {
    return currentHandler.exchange(handler ? handler : &printAssertionFailure);
}

void handleAssertionFailure(const char* function, const char* file, int line,
                            const std::string& description) {
    currentHandler.load()(AssertionFailure{function, lastPathComponent(file), line, description});
    std::abort();
}

const char* lastPathComponent(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

} // namespace tesk
