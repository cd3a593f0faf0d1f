// The flairize command under signals and failed writes: interrupted outputs
// leave no temporary, an ignored signal stays ignored, a reader that goes away
// ends the command with an exit status it documents, and want of memory
// anywhere names the input.
#include <signal.h>

#include "tests/command_support.h"

#include "tests/sanitized.h"

namespace {

using namespace testcli;

// Runs `flairize args` in /bin/sh with its standard output piped into `reader`
// (or redirected, `> /dev/full`); returns flairize's own status and stderr.
CommandRun piped(const std::string& args, const std::string& reader) {
    const std::string status = dir() + "/pipe-status", err = dir() + "/pipe-stderr";
    const std::string cmd =
        "{ " + std::string(FLAIRIZE_BIN) + " " + args + " 2>" + err + "; echo $? >" + status + "; } " + reader;
    std::system(cmd.c_str());
    const std::string code = slurp(status);
    return {code.empty() ? -1 : std::atoi(code.c_str()), "", slurp(err)};
}

}  // namespace

// A signal while a large result is written: caught, the temporary goes and the
// command dies of it; ignored when it starts (nohup, a background job of a
// script), it stays ignored and the output is written whole.
TEST(CommandLineSignals, CaughtRemoveTheTemporaryIgnoredStayIgnored) {
    const std::string d = dir() + "/signals";
    ASSERT_EQ(mkdir(d.c_str(), 0755), 0);
    const std::string in = picture("signals/big.png", 8000, 8000, 24), out = d + "/OUT.png";
    struct Case {
        int sig;
        bool ignored;
    };
    const Case cases[] = {{SIGINT, false}, {SIGHUP, false}, {SIGTERM, false}, {SIGINT, true}, {SIGHUP, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(strsignal(c.sig)) + (c.ignored ? ", ignored" : ""));
        std::remove(out.c_str());
        const pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            signal(c.sig, c.ignored ? SIG_IGN : SIG_DFL);
            execl(FLAIRIZE_BIN, "flairize", "render", in.c_str(), out.c_str(), "--effect", "solarize", nullptr);
            _exit(127);
        }
        bool seen = false;
        int status = 0;
        for (int i = 0; i < 12000 && !seen && waitpid(pid, &status, WNOHANG) == 0; ++i) {
            seen = temporaryOf(d, "OUT.png");
            if (!seen) usleep(5000);
        }
        if (seen) {
            kill(pid, c.sig);
            waitpid(pid, &status, 0);
        }
        ASSERT_TRUE(seen) << "the output was never being written";
        if (c.ignored) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
            EXPECT_TRUE(exists(out));
        } else {
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == c.sig) << status;
            EXPECT_FALSE(exists(out));
        }
        EXPECT_FALSE(temporaryOf(d, "OUT.png"));
    }
    std::remove(out.c_str());
    std::remove(in.c_str());
}

// Standard output that fails: a picture cut short is a failure with one line;
// text whose reader stopped reading (`| head -1`) ends quietly; a full disk
// fails for text too. Never a death by SIGPIPE.
TEST(CommandLineSignals, FailedWritesToStandardOutput) {
    const std::string sample = std::string(FLAIRIZE_SOURCE_DIR) + "/samples/sample.png";
    struct Case {
        const char* args;     // the picture's PNG and the timing's text are far larger than a pipe holds
        const char* reader;
        int status;
        const char* err;
    };
    const Case cases[] = {
        {"render SAMPLE - --effect solarize", "| head -c 10 >/dev/null", 1, "flairize: -: Broken pipe\n"},
        {"render SAMPLE - --effect solarize", ">/dev/full", 1, "flairize: -: No space left on device\n"},
        {"timing --frames 300000", "| head -n 1 >/dev/null", 0, ""},
        {"list", "| head -n 1 >/dev/null", 0, ""},
        {"list", ">/dev/full", 1, "flairize: standard output: No space left on device\n"},
        {"--help", ">/dev/full", 1, "flairize: standard output: No space left on device\n"},
    };
    for (const Case& c : cases) {
        std::string args = c.args;
        if (const std::size_t at = args.find("SAMPLE"); at != std::string::npos) args.replace(at, 6, sample);
        SCOPED_TRACE(args + " " + c.reader);
        const CommandRun r = piped(args, c.reader);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.err, c.err);
    }
}

// Memory that runs out outside the places that report it themselves (here the
// buffer of a picture streamed on standard input, under an address-space
// limit) gives the one out-of-memory message naming the input, exit 1.
TEST(CommandLineSignals, OutOfMemoryAnywhereNamesTheInput) {
#ifdef FLAIRIZE_SANITIZED
    GTEST_SKIP() << "a sanitizer's shadow memory does not fit an address-space limit";
#endif
    const std::string out = dir() + "/oom.png";
    const CommandRun r = command("render - " + out + " --max-memory 4G",
                                 "ulimit -v 300000 && { printf '\\211PNG\\r\\n\\032\\n'; head -c 600M /dev/zero; } | ");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "flairize: -: Not enough memory to complete operation\n");
    EXPECT_FALSE(exists(out));
}
