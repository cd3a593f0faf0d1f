#include "standalone/output_file.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace output {
namespace {

// Names of the temporaries being written, for the signal handler. A slot is
// free (0), being filled (1) or live (2); the handler reads live slots only.
// Names live in the slots themselves (untouched pages cost nothing), so the
// handler never reads memory that is allocated or freed.
struct Slot {
    std::atomic<int> state{0};
    char name[PATH_MAX];
};
constexpr int kSlots = 1100;   // more than the frames a sequence writes at once
Slot g_slots[kSlots];
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler needs lock-free slots");

const int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// Temporaries being made and not yet registered. Their threads block the
// signals meanwhile, but another thread may take one: it waits for them.
std::atomic<int> g_opening{0};

extern "C" void removeTemporaries(int sig) {
    while (g_opening.load(std::memory_order_acquire) != 0) {
    }
    for (Slot& s : g_slots)
        if (s.state.load(std::memory_order_acquire) == 2) ::unlink(s.name);
    // Die of the signal as if it had not been caught; it is delivered when the
    // handler returns.
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

mode_t g_umask = 022;

void installHandler() {
    static std::once_flag once;
    std::call_once(once, [] {
        g_umask = ::umask(0);
        ::umask(g_umask);
        for (int sig : kSignals) {
            struct sigaction old {};
            if (::sigaction(sig, nullptr, &old) != 0 || old.sa_handler == SIG_IGN) continue;   // keep nohup's choice
            struct sigaction sa {};
            sa.sa_handler = removeTemporaries;
            sigemptyset(&sa.sa_mask);
            for (int other : kSignals) sigaddset(&sa.sa_mask, other);
            ::sigaction(sig, &sa, nullptr);
        }
    });
}

int registerName(const std::string& name) {
    for (int i = 0; i < kSlots; ++i) {
        int expected = 0;
        if (!g_slots[i].state.compare_exchange_strong(expected, 1)) continue;
        Slot& s = g_slots[i];
        if (name.size() >= sizeof s.name) {   // too long to be a path: nothing to remove later
            s.state.store(0, std::memory_order_release);
            return -1;
        }
        std::memcpy(s.name, name.c_str(), name.size() + 1);
        s.state.store(2, std::memory_order_release);
        return i;
    }
    return -1;
}

void unregisterName(int slot) {
    if (slot >= 0) g_slots[slot].state.store(0, std::memory_order_release);
}

// The file a path finally names: symlinks followed, each relative to its own folder.
std::string resolveLinks(std::string path) {
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st {};
        if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
        std::string link(PATH_MAX, '\0');
        const ssize_t n = ::readlink(path.c_str(), link.data(), link.size());
        if (n <= 0) return path;
        link.resize(std::size_t(n));
        const std::size_t slash = path.rfind('/');
        path = (link[0] == '/' || slash == std::string::npos) ? link : path.substr(0, slash + 1) + link;
    }
    return path;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool check(const std::string& path, std::string& error) {
    if (path == "-") {
        if (!::isatty(STDOUT_FILENO)) return true;
        error = "standard output is a terminal, not a file or a pipe";
        return false;
    }
    const std::string target = resolveLinks(path);
    struct stat st {};
    if (::stat(target.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            error = "is a folder";
            return false;
        }
        // Write bits count even for root: a file made read-only stays so.
        if (!(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) || ::access(target.c_str(), W_OK) != 0) {
            error = "is read-only";
            return false;
        }
    } else if (errno != ENOENT) {
        error = std::strerror(errno);
        return false;
    }
    const std::string folder = folderOf(target);
    if (::stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = "the folder " + folder + " does not exist";
        return false;
    }
    if (::access(folder.c_str(), W_OK | X_OK) != 0) {
        error = "the folder " + folder + " cannot be written";
        return false;
    }
    return true;
}

File::~File() { discard(); }

bool File::open(const std::string& path, std::string& error) {
    if (!check(path, error)) return false;
    if (path == "-") {
        fd_ = STDOUT_FILENO;
        return true;
    }
    installHandler();
    target_ = resolveLinks(path);
    struct stat st {};
    mode_ = ::stat(target_.c_str(), &st) == 0 ? (st.st_mode & 07777) : (0666 & ~g_umask);
    std::string temp = target_ + ".XXXXXX";
    // No signal between making the temporary and registering it: blocked in
    // this thread, waited out in any other.
    sigset_t block, old;
    sigemptyset(&block);
    for (int sig : kSignals) sigaddset(&block, sig);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    g_opening.fetch_add(1, std::memory_order_acq_rel);
    fd_ = ::mkstemp(temp.data());
    const int openError = errno;
    if (fd_ >= 0) {
        temp_ = temp;
        slot_ = registerName(temp_);
    }
    g_opening.fetch_sub(1, std::memory_order_acq_rel);
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (fd_ < 0) {
        error = std::strerror(openError);
        return false;
    }
    return true;
}

bool File::commit(std::string& error) {
    if (temp_.empty()) {
        fd_ = -1;   // standard output stays open
        return true;
    }
    bool ok = ::fchmod(fd_, mode_) == 0;
    if (!ok) error = std::strerror(errno);
    if (::close(fd_) != 0 && ok) {
        error = std::strerror(errno);
        ok = false;
    }
    fd_ = -1;
    if (ok && ::rename(temp_.c_str(), target_.c_str()) != 0) {
        error = std::strerror(errno);
        ok = false;
    }
    if (!ok) {
        discard();
        return false;
    }
    unregisterName(slot_);
    slot_ = -1;
    temp_.clear();
    return true;
}

void File::discard() {
    if (temp_.empty()) return;
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    ::unlink(temp_.c_str());
    unregisterName(slot_);
    slot_ = -1;
    temp_.clear();
}

}  // namespace output
