#include "tools/vekdc/io/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

namespace vekdc {
namespace {

// The temporary file that a signal must remove. There is one output at a time. The name is written
// only while signals are held back.
std::array<char, 4096> temporaryName;

constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGXCPU};

sigset_t endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : kEndingSignals) sigaddset(&set, number);
    return set;
}

extern "C" void endBySignal(int number) {
    if (temporaryName[0] != 0) unlink(temporaryName.data());
    signal(number, SIG_DFL);
    raise(number);
}

// Holds the ending signals back while a temporary file and its registered name are out of step.
class SignalsHeld {
 public:
    SignalsHeld() {
        const sigset_t set = endingSignals();
        pthread_sigmask(SIG_BLOCK, &set, &before_);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
    sigset_t before_{};
};

std::string folderOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

bool mayCreateBeside(const std::string& path) {
    const std::string folder = folderOf(path);
    return access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0;
}

// The open descriptor that a path leads to by way of links, as /dev/stdout does; -1: none. Such a
// path names no file to replace: what is written goes to the descriptor, at the place where it is.
int descriptorBehind(const std::string& path) {
    namespace fs = std::filesystem;
    constexpr int mostLinks = 40;
    std::error_code error;
    const fs::path own = fs::canonical("/proc/self/fd", error);
    if (error) return -1;
    fs::path step = path;
    for (int i = 0; i < mostLinks; ++i) {
        const fs::path folder =
            fs::canonical(step.has_parent_path() ? step.parent_path() : ".", error);
        if (error) return -1;
        if (folder == own) return std::atoi(step.filename().c_str());
        const fs::path next = fs::read_symlink(folder / step.filename(), error);
        if (error) return -1;
        step = folder / next;
    }
    return -1;
}

}  // namespace

void occupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (fcntl(descriptor, F_GETFD) < 0)
            open("/dev/null", (descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
}

void installSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = endBySignal;
    action.sa_mask = endingSignals();
    for (const int number : kEndingSignals) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        if (before.sa_handler == SIG_DFL) sigaction(number, &action, nullptr);
    }
    // A file size limit is reported by write(), like a full disk.
    signal(SIGXFSZ, SIG_IGN);
}

SystemFailure::SystemFailure(std::string subject, int error)
    : Failure(std::strerror(error)), path(std::move(subject)) {}

InputFile::InputFile(const std::string& path)
    : path_(path), name_(path == kStdin ? "standard input" : path) {
    descriptor_ = isStdin() ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0 || fstat(descriptor_, &status_) != 0) throw SystemFailure(name_, errno);
    if (S_ISDIR(status_.st_mode)) {
        if (!isStdin()) close(std::exchange(descriptor_, -1));
        throw SystemFailure(name_, EISDIR);
    }
#ifdef POSIX_FADV_SEQUENTIAL
    if (isRegular()) posix_fadvise(descriptor_, 0, 0, POSIX_FADV_SEQUENTIAL);
#endif
}

InputFile::~InputFile() {
    if (descriptor_ > STDIN_FILENO) close(descriptor_);
}

bool InputFile::isTerminal() const {
    return isatty(descriptor_) != 0;
}

size_t InputFile::read(uint8_t* to, size_t room) {
    ssize_t count = 0;
    do {
        count = ::read(descriptor_, to, room);
    } while (count < 0 && errno == EINTR);
    if (count < 0) throw SystemFailure(name_, errno);
    if (progress_ != nullptr) progress_->advance(static_cast<uint64_t>(count));
    return static_cast<size_t>(count);
}

OutputFile::OutputFile() : path_("standard output"), descriptor_(STDOUT_FILENO) {}

OutputFile::OutputFile(const std::string& path, bool force, const InputFile& like)
    : path_(path), force_(force), like_(like.status()), copiesAttributes_(like.isRegular()) {
    struct stat existing {};
    if (stat(path.c_str(), &existing) == 0) {
        if (S_ISDIR(existing.st_mode)) throw SystemFailure(path, EISDIR);
        requireOther(existing);
        if (const int behind = descriptorBehind(path); behind >= 0) {
            descriptor_ = fcntl(behind, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
            if (descriptor_ < 0) throw SystemFailure(path, errno);
            return;
        }
        if (!S_ISREG(existing.st_mode)) {
            openInPlace(0);
            return;
        }
        if (!force) throw SystemFailure(path, EEXIST);
        if (!mayCreateBeside(path)) {
            openInPlace(O_TRUNC);
            return;
        }
    }
    createTemporary();
}

void OutputFile::requireOther(const struct stat& existing) const {
    if (existing.st_dev == like_.st_dev && existing.st_ino == like_.st_ino)
        throw Failure("input and output are the same file");
}

void OutputFile::renameTo(const std::string& path, bool force) {
    struct stat existing {};
    if (stat(path.c_str(), &existing) == 0) {
        requireOther(existing);
        if (!force || !S_ISREG(existing.st_mode)) throw SystemFailure(path, EEXIST);
    }
    if (temporary_.empty()) throw SystemFailure(path, EACCES);
    path_ = path;
    force_ = force;
}

void OutputFile::openInPlace(int flags) {
    descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | flags);
    if (descriptor_ < 0) throw SystemFailure(path_, errno);
}

void OutputFile::createTemporary() {
    const SignalsHeld held;
    std::string name = folderOf(path_) + ".vekdc-XXXXXX";
    if (name.size() >= temporaryName.size()) throw SystemFailure(path_, ENAMETOOLONG);
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) throw SystemFailure(path_, errno);
    temporary_ = name;
    std::copy_n(name.c_str(), name.size() + 1, temporaryName.begin());
}

OutputFile::~OutputFile() {
    const SignalsHeld held;
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
        temporaryName[0] = 0;
    }
    if (descriptor_ > STDOUT_FILENO) close(descriptor_);
}

bool OutputFile::isTerminal() const {
    return isatty(descriptor_) != 0;
}

bool OutputFile::isSameAs(const InputFile& input) const {
    struct stat own {};
    return input.isRegular() && fstat(descriptor_, &own) == 0 &&
           own.st_dev == input.status().st_dev && own.st_ino == input.status().st_ino;
}

// Small pieces (headers, trailers, short blocks) are gathered; large ones go straight through.
void OutputFile::write(Bytes bytes) {
    constexpr size_t kGather = 64 << 10;
    written_ += bytes.size();
    if (buffer_.size() + bytes.size() > kGather) flush();
    if (bytes.size() >= kGather) {
        put(bytes);
    } else {
        buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    }
}

void OutputFile::flush() {
    put(buffer_);
    buffer_.clear();
}

// Zeros are left out by the page.
void OutputFile::put(Bytes bytes) {
    constexpr size_t page = 4096;
    if (!leavesHoles_) {
        writeAll(bytes);
        return;
    }
    const auto zeros = [&](size_t at) {
        return at + page <= bytes.size() && bytes[at] == 0 &&
               std::memcmp(&bytes[at], &bytes[at + 1], page - 1) == 0;
    };
    for (size_t at = 0; at < bytes.size();) {
        size_t end = at;
        while (zeros(end)) end += page;
        if (end != at) {
            skip(end - at);
        } else {
            while (end < bytes.size() && !zeros(end)) end += std::min(page, bytes.size() - end);
            writeAll(bytes.subspan(at, end - at));
        }
        at = end;
    }
}

void OutputFile::skip(size_t zeros) {
    if (lseek(descriptor_, static_cast<off_t>(zeros), SEEK_CUR) < 0)
        throw SystemFailure(path_, errno);
    endsInHole_ = true;
}

void OutputFile::writeAll(Bytes bytes) {
    if (!bytes.empty()) endsInHole_ = false;
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw SystemFailure(path_, errno);
        bytes = bytes.subspan(static_cast<size_t>(count));
    }
}

// The owner is a matter of privilege: where it cannot be kept the file is the caller's, who may
// read and write it. Rights that were meant for another group are given to the caller's only where
// everyone has them.
void OutputFile::copyAttributes() {
    mode_t mode = like_.st_mode & 0777;
    if (fchown(descriptor_, like_.st_uid, like_.st_gid) != 0) {
        if (like_.st_uid != geteuid()) mode |= S_IRUSR | S_IWUSR;
        if (fchown(descriptor_, static_cast<uid_t>(-1), like_.st_gid) != 0)
            mode &= (mode & S_IRWXO) << 3 | static_cast<mode_t>(~S_IRWXG);
    }
    if (fchmod(descriptor_, mode) != 0) throw SystemFailure(path_, errno);
    const std::array<timespec, 2> times = {like_.st_atim, like_.st_mtim};
    if (futimens(descriptor_, times.data()) != 0) throw SystemFailure(path_, errno);
}

// Gives the finished file its name, without ever replacing one that appeared meanwhile.
void OutputFile::rename() {
    const SignalsHeld held;
    if (!force_ && link(temporary_.c_str(), path_.c_str()) == 0) {
        unlink(temporary_.c_str());
    } else {
        // Not every file system has links.
        if (!force_ && (errno == EEXIST || access(path_.c_str(), F_OK) == 0))
            throw SystemFailure(path_, EEXIST);
        if (::rename(temporary_.c_str(), path_.c_str()) != 0) throw SystemFailure(path_, errno);
    }
    temporary_.clear();
    temporaryName[0] = 0;
}

void OutputFile::commit(bool durable) {
    flush();
    if (temporary_.empty()) return;
    if (endsInHole_ && ftruncate(descriptor_, static_cast<off_t>(written_)) != 0)
        throw SystemFailure(path_, errno);
    if (copiesAttributes_) {
        copyAttributes();
    } else {
        const mode_t mask = umask(0);
        umask(mask);
        if (fchmod(descriptor_, 0666 & ~mask) != 0) throw SystemFailure(path_, errno);
    }
    if (durable && fsync(descriptor_) != 0) throw SystemFailure(path_, errno);
    // Some file systems tell of a full disk only now.
    if (close(std::exchange(descriptor_, -1)) != 0) throw SystemFailure(path_, errno);
    rename();
}

void removeFile(const std::string& path) {
    if (unlink(path.c_str()) != 0) throw SystemFailure(path, errno);
}

}  // namespace vekdc
