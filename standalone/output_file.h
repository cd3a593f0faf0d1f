// Output files of the flairize command: written as a temporary beside the
// target and renamed over it, so a reader never sees half a picture and a
// failure or an interruption leaves the target as it was.
#pragma once

#include <string>

namespace output {

// Whether `path` can take an output file: not a folder, not read-only, in a
// folder that exists and can be written. "-" (standard output) can unless it
// is a terminal.
// On refusal `error` is a short reason ("is read-only").
bool check(const std::string& path, std::string& error);

// One output file being written. A symlink target is written through: the
// link stays and the file it points to is replaced. A new file gets
// 0666 & ~umask, a replaced file keeps its mode. The temporary is removed by
// the destructor unless commit() succeeded, and by SIGINT, SIGTERM and SIGHUP.
class File {
public:
    File() = default;
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool open(const std::string& path, std::string& error);
    int fd() const { return fd_; }
    bool seekable() const { return !temp_.empty(); }   // false for standard output
    bool commit(std::string& error);

private:
    void discard();
    int fd_ = -1;
    int slot_ = -1;        // its place in the registry the signal handler reads
    unsigned mode_ = 0;
    std::string target_;   // the file finally replaced (a symlink resolved)
    std::string temp_;
};

}  // namespace output
