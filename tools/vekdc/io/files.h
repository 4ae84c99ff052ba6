// Files as the tool treats them: inputs of any kind, outputs that appear whole or not at all.
//
// An output file is written under a temporary name in the same folder, gets the input's mode, owner
// and time stamps, and is renamed at the very end; whatever stops the tool before, an interrupt
// included, removes it. Pipes, devices, and files in folders that take no other are written in
// place.
#pragma once

#include <sys/stat.h>

#include <string>

#include "tools/vekdc/io/buffer.h"
#include "tools/vekdc/io/progress.h"
#include "tools/vekdc/io/stream.h"

namespace vekdc {

/// What the system refused: "PATH: reason". The path is the one that the trouble is with.
struct SystemFailure : Failure {
    SystemFailure(std::string path, int error);
    std::string path;
};

constexpr const char* kStdin = "-";

/// An input: a path, or standard input for "-".
class InputFile : public Reader {
 public:
    explicit InputFile(const std::string& path);
    ~InputFile() override;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    size_t read(uint8_t* to, size_t room) override;

    /// Tells `progress` of every byte read.
    void report(Progress& progress) { progress_ = &progress; }
    bool isStdin() const { return path_ == kStdin; }
    bool isTerminal() const;
    bool isRegular() const { return S_ISREG(status_.st_mode); }
    /// Length of a regular file; 0 where it is not known.
    uint64_t size() const { return isRegular() ? static_cast<uint64_t>(status_.st_size) : 0; }
    const struct stat& status() const { return status_; }
    /// As messages name it.
    const std::string& name() const { return name_; }
    const std::string& path() const { return path_; }

 private:
    std::string path_;
    std::string name_;
    int descriptor_ = -1;
    struct stat status_ {};
    Progress* progress_ = nullptr;
};

class OutputFile : public Sink {
 public:
    /// Standard output.
    OutputFile();
    /// A new file that will take the attributes of `like`. An existing file at the path is refused
    /// unless `force`; an existing device or pipe, or a descriptor that the path leads to, is
    /// written as it is, and a file whose folder may not be written, in place.
    OutputFile(const std::string& path, bool force, const InputFile& like);
    ~OutputFile() override;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(Bytes bytes) override;

    /// Stretches of zeros become holes from here on, where a new file is written.
    void leaveHoles() { leavesHoles_ = !temporary_.empty(); }
    /// Lets a new file have another name in the end. A regular file there is refused unless
    /// `force`, and anything else.
    void renameTo(const std::string& path, bool force);
    /// The time stamp that it gets, in place of the input's.
    void setModified(uint32_t seconds) { like_.st_mtim = {static_cast<time_t>(seconds), 0}; }

    /// Writes what is buffered, sets the attributes, and gives the file its name. With `durable` it
    /// is on the disk before this returns, so that the input may go.
    void commit(bool durable);

    uint64_t written() const { return written_; }
    bool isTerminal() const;
    /// Whether this is the very file that is read.
    bool isSameAs(const InputFile& input) const;

 private:
    void flush();
    void put(Bytes bytes);
    void writeAll(Bytes bytes);
    void skip(size_t zeros);
    void createTemporary();
    void requireOther(const struct stat& existing) const;
    void openInPlace(int flags);
    void copyAttributes();
    void rename();

    std::string path_;
    std::string temporary_;
    bool force_ = false;
    int descriptor_ = -1;
    struct stat like_ {};
    bool copiesAttributes_ = false;
    Buffer buffer_;
    uint64_t written_ = 0;
    bool leavesHoles_ = false;
    bool endsInHole_ = false;
};

/// Removes an input that was coded.
void removeFile(const std::string& path);

/// Opens those of the three standard descriptors that are closed, so that no file gets their
/// numbers; reading and writing them fails as before.
void occupyStandardDescriptors();

/// Makes signals that end the program remove the temporary file first.
void installSignalHandlers();

}  // namespace vekdc
