#include "platform/strings.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "platform/win_types.h"

namespace plat {

#ifdef _WIN32
HINSTANCE moduleInstance();
#else
namespace {
struct StringEntry {
    unsigned id;
    const char* text;
};
constexpr StringEntry kStrings[] = {
#define FLR_STRING(id, text) {id, text},
#include "resources/strings.inc"
#undef FLR_STRING
};
}  // namespace
#endif

int loadString(unsigned id, char* buffer, int size) {
    if (!buffer || size <= 0) return 0;
#ifdef _WIN32
    int n = LoadStringA(moduleInstance(), id, buffer, size);
    if (n <= 0) buffer[0] = '\0';
    return n < 0 ? 0 : n;
#else
    buffer[0] = '\0';
    for (const StringEntry& e : kStrings) {
        if (e.id != id) continue;
        std::size_t n = std::strlen(e.text);
        if (n > static_cast<std::size_t>(size - 1)) n = static_cast<std::size_t>(size - 1);
        std::memcpy(buffer, e.text, n);
        buffer[n] = '\0';
        return static_cast<int>(n);
    }
    return 0;
#endif
}

std::string loadString(unsigned id) {
    char buffer[256];
    loadString(id, buffer, sizeof buffer);
    return buffer;
}

namespace {
std::mutex g_sinkMutex;
MessageSink g_sink;
}  // namespace

MessageSink setMessageSink(MessageSink sink) {
    std::lock_guard<std::mutex> lock(g_sinkMutex);
    MessageSink old = std::move(g_sink);
    g_sink = std::move(sink);
    return old;
}

void messageBox(const char* text) {
    {
        std::lock_guard<std::mutex> lock(g_sinkMutex);
        if (g_sink) {
            g_sink(text);
            return;
        }
    }
#ifdef _WIN32
    MessageBoxA(nullptr, text, nullptr, MB_TASKMODAL);
#else
    std::fprintf(stderr, "%s\n", text);
#endif
}

void showStringMessage(unsigned id) {
    char buffer[128];
    loadString(id, buffer, sizeof buffer);
    messageBox(buffer);
}

}  // namespace plat
