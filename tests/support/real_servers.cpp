#include "real_servers.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#if defined(__APPLE__)
#include <crt_externs.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "loopback.h"

namespace support {

namespace {

// Becomes the server, beside a shell that waits for the end of the input, which is the end of the
// test, and then removes the server and its directory ($0). That shell belongs to the server's
// process group: as long as it waits, no other process can get the server's number.
constexpr char launcher[] = R"(
exec 3<&0 </dev/null
{
    read -r line <&3
    for attempt in 1 2 3 4 5 6 7 8 9; do
        kill $$ && sleep 0.1
    done
    kill -9 $$
    rm -rf "$0"
} 2>/dev/null &
exec "$@" 3<&-
)";

char** environmentOfProcess() {
#if defined(__APPLE__)
    return *_NSGetEnviron();
#else
    return environ;
#endif
}

// Server programs often stand where only root's search path leads.
std::string findProgram(const char* name) {
    for (const char* place :
         {"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/", "/usr/local/bin/", "/opt/homebrew/bin/"}) {
        const std::string path = std::string(place) + name;
        if (access(path.c_str(), X_OK) == 0) {
            return path;
        }
    }
    return "";
}

} // namespace

TemporaryDirectory::TemporaryDirectory()
    : path_((std::filesystem::temp_directory_path() / "qormon3-XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) {
        path_ = "/nonexistent";
    }
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

RealServer::RealServer(const char* program) : program_(program) {}

RealServer::~RealServer() {
    stop();
}

bool RealServer::start() {
    const std::string binary = findProgram(program_);
    if (binary.empty()) {
        problem_ = std::string(program_) + " is not installed";
        return false;
    }
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (spawn(binary) && waitUntilItListens()) {
            problem_.clear();
            return true;
        }
        stop();
        problem_ = std::string(program_) +
                   " did not start: " + readWholeFile(directory_.file("output.txt"));
    }
    return false;
}

bool RealServer::spawn(const std::string& binary) {
    port_ = unusedPort();
    const std::string file = directory_.file("server.conf");
    writeWholeFile(file, configuration(port_));

    int ends[2] = {-1, -1};
    if (pipe(ends) != 0) {
        return false;
    }
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    fcntl(ends[1], F_SETFD, FD_CLOEXEC);
    lifeline_ = ends[1];
    std::vector<std::string> command = {"/bin/sh", "-c", launcher, directory_.path(), binary};
    for (const std::string& argument : arguments(file)) {
        command.push_back(argument);
    }
    runs_ = spawnShell(std::move(command), ends[0]);
    close(ends[0]);
    return runs_;
}

bool RealServer::spawnShell(std::vector<std::string> command, int input) {
    std::vector<char*> pointers;
    for (std::string& text : command) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);

    // A group of its own: what the server starts ends with it.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, directory_.file("output.txt").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int error = posix_spawn(&group_, pointers[0], &actions, &attributes, pointers.data(),
                                  environmentOfProcess());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        group_ = -1;
    }
    return error == 0;
}

bool RealServer::runs() {
    int status = 0;
    if (runs_ && waitpid(group_, &status, WNOHANG) == group_) {
        runs_ = false;
    }
    return runs_;
}

bool RealServer::waitUntilItListens() {
    // Both servers write their process number after they have bound the port: whoever takes the
    // connection then is ours.
    const std::string pidFile = directory_.file("server.pid");
    const bool decided = waitUntil([&] {
        return !runs() ||
               (std::atoi(readWholeFile(pidFile).c_str()) == group_ && acceptsConnections(port_));
    });
    return decided && runs();
}

void RealServer::stop() {
    if (group_ > 0) {
        kill(-group_, SIGTERM); // the shell too, also where the server has ended by itself
        if (!waitUntil([this] { return !runs(); })) {
            kill(-group_, SIGKILL);
            waitpid(group_, nullptr, 0);
            runs_ = false;
        }
        group_ = -1;
    }
    if (lifeline_ >= 0) {
        close(lifeline_);
        lifeline_ = -1;
    }
}

std::string RealServer::log() const {
    return readWholeFile(directory_.file("access.log"));
}

bool RealServer::waitForLog(const std::string& text) const {
    return waitUntil([&] { return log().find(text) != std::string::npos; });
}

Nginx::Nginx() : RealServer("nginx") {
    std::error_code ignored;
    std::filesystem::create_directory(directory().file("files"), ignored);
}

Nginx::~Nginx() = default;

void Nginx::addFile(const std::string& name, const std::string& bytes, std::time_t modified) {
    const std::string path = directory().file("files/" + name);
    writeWholeFile(path, bytes);
    if (modified != -1) {
        const utimbuf times = {modified, modified};
        utime(path.c_str(), &times);
    }
}

void Nginx::addServerLines(const std::string& lines) {
    serverLines_ += lines + "\n";
}

std::string Nginx::url(const std::string& path) const {
    return urlOf("127.0.0.1", port(), path);
}

std::string Nginx::configuration(std::uint16_t port) const {
    const std::string base = directory().path();
    std::string text = "daemon off;\n"
                       "master_process off;\n"
                       "pid " +
                       base +
                       "/server.pid;\n"
                       "error_log stderr;\n"
                       "events { worker_connections 64; }\n"
                       "http {\n"
                       "    default_type application/octet-stream;\n"
                       "    access_log " +
                       base + "/access.log;\n";
    for (const char* kind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        text += std::string("    ") + kind + "_temp_path " + base + "/" + kind + ";\n";
    }
    return text +
           "    server {\n"
           "        listen 127.0.0.1:" +
           std::to_string(port) +
           ";\n"
           "        root " +
           base + "/files;\n" + serverLines_ + "    }\n}\n";
}

std::vector<std::string> Nginx::arguments(const std::string& file) const {
    return {"-e", "stderr", "-p", directory().path(), "-c", file};
}

Tinyproxy::Tinyproxy() : RealServer("tinyproxy") {}

Tinyproxy::Tinyproxy(const std::string& user, const std::string& password)
    : RealServer("tinyproxy"), authentication_("BasicAuth " + user + " " + password + "\n") {}

Tinyproxy::~Tinyproxy() = default;

std::string Tinyproxy::configuration(std::uint16_t port) const {
    return "Port " + std::to_string(port) +
           "\n"
           "Listen 127.0.0.1\n"
           "Allow 127.0.0.1\n"
           "Timeout 30\n"
           "MaxClients 20\n"
           "LogLevel Connect\n"
           "LogFile \"" +
           directory().file("access.log") +
           "\"\n"
           "PidFile \"" +
           directory().file("server.pid") + "\"\n" + authentication_;
}

std::vector<std::string> Tinyproxy::arguments(const std::string& file) const {
    return {"-d", "-c", file};
}

} // namespace support
