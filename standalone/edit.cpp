#include "standalone/edit.h"
#include "standalone/messages.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <spawn.h>
#include <strings.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#if FLAIRIZE_EDIT
#include <microhttpd.h>
#endif

extern char** environ;

namespace edit {

std::string urlEncode(const std::string& text) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (const char ch : text) {
        const unsigned char c = static_cast<unsigned char>(ch);
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            out.push_back(ch);
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 15]);
        }
    }
    return out;
}

const char* contentType(const std::string& name) {
    static const std::pair<const char*, const char*> kTypes[] = {
        {".html", "text/html; charset=utf-8"}, {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
        {".json", "application/json"}, {".wasm", "application/wasm"}, {".svg", "image/svg+xml"},
        {".png", "image/png"}, {".ico", "image/x-icon"}, {".jpg", "image/jpeg"}, {".jpeg", "image/jpeg"},
        {".webp", "image/webp"}, {".bmp", "image/bmp"}, {".tif", "image/tiff"}, {".tiff", "image/tiff"},
    };
    const std::size_t dot = name.rfind('.');
    if (dot != std::string::npos && name.find('/', dot) == std::string::npos) {
        std::string ext = name.substr(dot);
        for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        for (const auto& [e, type] : kTypes)
            if (ext == e) return type;
    }
    return "application/octet-stream";
}

#if !FLAIRIZE_EDIT

Outcome serve(const Job&) {
    return {2, "edit: this flairize was built without libmicrohttpd (Debian package libmicrohttpd-dev), so it "
               "serves no web editor"};
}

#else

namespace {

bool isFile(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool isSite(const std::string& dir) { return isFile(dir + "/index.html") && isFile(dir + "/flairize-engine.js"); }

std::string executableDir() {
    char path[PATH_MAX];
    const ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0) return ".";
    std::string p(path, std::size_t(n));
    return p.substr(0, p.rfind('/'));
}

// --site, else FLAIRIZE_WEB_DIR, else the build tree's site/ beside the
// executable, else the installed share/flairize/web.
std::vector<std::string> siteCandidates(const Job& job) {
    if (!job.site.empty()) return {job.site};
    if (const char* env = std::getenv("FLAIRIZE_WEB_DIR"); env && *env) return {env};
    const std::string exe = executableDir();
    return {exe + "/site", exe + "/../share/flairize/web"};
}

struct Site {
    std::string root;          // the site folder, resolved
    std::string pictureUrl;    // "/picture/<name>" as the request names it (decoded); empty: none
    std::string picturePath;   // resolved
    std::atomic<unsigned> port{0};   // known once the daemon listens; 0 refuses every request
};

// Idle connections and requests that never finish are closed after this long.
constexpr unsigned kConnectionTimeoutSeconds = 10;

void warn(const std::string& text) { notices::say("warning: %s\n", text.c_str()); }

MHD_Result queue(MHD_Connection* c, unsigned code, MHD_Response* r, const char* type) {
    MHD_add_response_header(r, MHD_HTTP_HEADER_CONTENT_TYPE, type);
    MHD_add_response_header(r, "X-Content-Type-Options", "nosniff");
    MHD_add_response_header(r, MHD_HTTP_HEADER_CACHE_CONTROL, "no-cache");   // a rebuilt site shows at once
    const MHD_Result ok = MHD_queue_response(c, code, r);
    MHD_destroy_response(r);
    return ok;
}

MHD_Result text(MHD_Connection* c, unsigned code, const char* body, bool allowHeader = false) {
    MHD_Response* r = MHD_create_response_from_buffer(std::strlen(body), const_cast<char*>(body), MHD_RESPMEM_PERSISTENT);
    if (!r) return MHD_NO;
    if (allowHeader) MHD_add_response_header(r, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    return queue(c, code, r, "text/plain; charset=utf-8");
}

MHD_Result notFound(MHD_Connection* c) { return text(c, MHD_HTTP_NOT_FOUND, "Not found\n"); }

// Only regular files are served: a FIFO, a device or a folder is 404, looked at
// before it is opened, and opened without blocking in case it changed since.
// `followLink` false: a path already resolved must not have become a link.
MHD_Result sendFile(MHD_Connection* c, const std::string& path, const char* type, bool followLink) {
    struct stat before {};
    if (::stat(path.c_str(), &before) != 0 || !S_ISREG(before.st_mode)) return notFound(c);
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | (followLink ? 0 : O_NOFOLLOW));
    if (fd < 0) return notFound(c);
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return notFound(c);
    }
    MHD_Response* r = MHD_create_response_from_fd(std::size_t(st.st_size), fd);   // closes fd when done
    if (!r) {
        ::close(fd);
        return MHD_NO;
    }
    return queue(c, MHD_HTTP_OK, r, type);
}

// A page elsewhere whose name is made to resolve to 127.0.0.1 (DNS rebinding)
// sends its own name as Host: only the addresses this server prints are
// answered. An HTTP/1.0 request without Host comes from no browser and is
// answered; HTTP/1.1 requires Host.
bool hostAllowed(MHD_Connection* c, const char* version, unsigned port) {
    if (port == 0) return false;
    const char* host = MHD_lookup_connection_value(c, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
    if (!host) return std::strcmp(version, MHD_HTTP_VERSION_1_0) == 0;
    const std::string suffix = ":" + std::to_string(port);
    for (const char* name : {"127.0.0.1", "localhost"})
        if (strcasecmp(host, (name + suffix).c_str()) == 0) return true;
    return false;
}

// Requests arrive with their path already %-decoded; only regular files whose
// resolved path lies inside the site are served.
MHD_Result answer(void* cls, MHD_Connection* c, const char* url, const char* method, const char* version,
                  const char*, std::size_t*, void**) {
    const Site& site = *static_cast<const Site*>(cls);
    if (!hostAllowed(c, version, site.port.load()))
        return text(c, MHD_HTTP_MISDIRECTED_REQUEST, "Use the address flairize edit printed (127.0.0.1 or localhost)\n");
    if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 && std::strcmp(method, MHD_HTTP_METHOD_HEAD) != 0)
        return text(c, MHD_HTTP_METHOD_NOT_ALLOWED, "Only GET and HEAD\n", true);
    const std::string path = url;
    if (!site.pictureUrl.empty() && path == site.pictureUrl)
        return sendFile(c, site.picturePath, contentType(site.picturePath), true);
    if (path.empty() || path[0] != '/') return notFound(c);
    char resolved[PATH_MAX];
    if (!::realpath((site.root + (path == "/" ? "/index.html" : path)).c_str(), resolved)) return notFound(c);
    const std::string file = resolved;
    if (file.compare(0, site.root.size() + 1, site.root + "/") != 0) return notFound(c);
    return sendFile(c, file, contentType(file), false);
}

// Runs BROWSER (words split at spaces; "%s" stands for the address, else it
// goes last) in a session of its own, so Ctrl-C here leaves it running.
void openBrowser(const std::string& command, const std::string& url) {
    std::vector<std::string> words;
    bool placed = false;
    for (std::size_t i = 0; i < command.size();) {
        while (i < command.size() && std::isspace(static_cast<unsigned char>(command[i]))) ++i;
        std::size_t j = i;
        while (j < command.size() && !std::isspace(static_cast<unsigned char>(command[j]))) ++j;
        if (j > i) words.push_back(command.substr(i, j - i));
        if (!words.empty() && words.back() == "%s") words.back() = url, placed = true;
        i = j;
    }
    if (words.empty()) return;
    if (!placed) words.push_back(url);
    std::vector<char*> argv;
    for (std::string& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    sigset_t none, pipe;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr, &none);   // not the blocked SIGINT and SIGTERM of this thread
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_setsigdefault(&attr, &pipe);   // flairize ignores SIGPIPE; the browser need not
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], nullptr, &attr, argv.data(), environ);
    posix_spawnattr_destroy(&attr);
    if (error) {
        warn("cannot start the browser \"" + command + "\" (BROWSER): " + std::strerror(error) +
             "; open the address yourself");
        return;
    }
    std::thread([pid, command] {
        int status = 0;
        if (::waitpid(pid, &status, 0) == pid && !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
            warn("the browser \"" + command + "\" (BROWSER) failed; open the address yourself");
    }).detach();
}

// Every connection costs a descriptor, and one more while a file is sent: the
// soft limit goes up to the hard one, and connections are limited to what fits.
unsigned connectionLimit() {
    rlimit files {};
    if (::getrlimit(RLIMIT_NOFILE, &files) != 0) return 500;
    if (files.rlim_cur < files.rlim_max) {
        files.rlim_cur = files.rlim_max;
        if (::setrlimit(RLIMIT_NOFILE, &files) != 0) ::getrlimit(RLIMIT_NOFILE, &files);
    }
    const rlim_t spare = 32;   // standard streams, the daemon's own, the browser's
    const rlim_t fit = files.rlim_cur > 2 * spare ? (files.rlim_cur - spare) / 2 : spare;
    return unsigned(fit < (rlim_t(1) << 20) ? fit : (rlim_t(1) << 20));
}

}  // namespace

Outcome serve(const Job& job) {
    Site site;
    if (!job.picture.empty()) {
        const int fd = ::open(job.picture.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);   // a FIFO does not block
        if (fd < 0) return {2, job.picture + ": " + std::strerror(errno)};
        struct stat st {};
        const bool regular = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
        ::close(fd);
        if (!regular) return {2, job.picture + ": not a file"};
        char resolved[PATH_MAX];
        if (!::realpath(job.picture.c_str(), resolved)) return {2, job.picture + ": " + std::strerror(errno)};
        site.picturePath = resolved;
        site.pictureUrl = "/picture/" + site.picturePath.substr(site.picturePath.rfind('/') + 1);
    }
    std::string looked;
    for (const std::string& dir : siteCandidates(job)) {
        char resolved[PATH_MAX];
        if (isSite(dir) && ::realpath(dir.c_str(), resolved)) {
            site.root = resolved;
            break;
        }
        looked += (looked.empty() ? "" : ", ") + dir;
    }
    if (site.root.empty())
        return {2, "the web editor is not built here (it needs Emscripten: Debian package emscripten); looked in " +
                       looked};

    // SIGINT and SIGTERM wait for sigwait below; the server's thread inherits the
    // mask. A shell starts background commands with SIGINT ignored, and a system
    // may discard an ignored signal even while it is blocked: the default comes back.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    sigset_t stop, previous;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, &previous);

    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = 0;   // a free port, read back below
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // epoll (else poll), not select(), which stops at 1024 descriptors: idle
    // connections cannot lock everyone out, and time out besides.
    const unsigned limit = connectionLimit();
    MHD_Daemon* daemon = nullptr;
    for (const unsigned flags : {unsigned(MHD_USE_EPOLL_INTERNAL_THREAD), unsigned(MHD_USE_POLL_INTERNAL_THREAD)}) {
        daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, &answer, &site, MHD_OPTION_SOCK_ADDR, &address,
                                  MHD_OPTION_CONNECTION_LIMIT, limit, MHD_OPTION_CONNECTION_TIMEOUT,
                                  kConnectionTimeoutSeconds, MHD_OPTION_END);
        if (daemon) break;
    }
    const MHD_DaemonInfo* info = daemon ? MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT) : nullptr;
    if (!info || !info->port) {
        const int error = errno;
        if (daemon) MHD_stop_daemon(daemon);
        pthread_sigmask(SIG_SETMASK, &previous, nullptr);
        return {1, std::string("edit: cannot serve on 127.0.0.1: ") + std::strerror(error)};
    }
    site.port = info->port;

    // The page's query names the picture's path, itself %-escaped once more
    // so that reading the query back gives the path as a request names it.
    std::string url = "http://127.0.0.1:" + std::to_string(info->port) + "/";
    if (!site.pictureUrl.empty()) {
        std::string query;
        for (const char ch : "/picture/" + urlEncode(site.pictureUrl.substr(9))) query += ch == '%' ? "%25" : std::string(1, ch);
        url += "?picture=" + query;
    }
    std::printf("Flairize editor: %s\nCtrl-C stops it.\n", url.c_str());
    std::fflush(stdout);
    if (const char* browser = std::getenv("BROWSER"); browser && *browser) openBrowser(browser, url);

    int sig = 0;
    while (sigwait(&stop, &sig) != 0) {
    }
    MHD_stop_daemon(daemon);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return {};
}

#endif

}  // namespace edit
