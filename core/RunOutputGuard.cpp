#include "core/RunOutputGuard.h"

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "core/Session.h"
#include "core/runtime/RuntimeError.h"
#include "core/runtime/System.h"

namespace kestro {

namespace fs = std::filesystem;

namespace {

std::string normal(const std::string& path) {
    if (!sys::BackslashSeparates && !path.empty() && path[0] == '/' && path.find("/.") == std::string::npos &&
        path.find("//") == std::string::npos)
        return path;  // already absolute and plain, the common case
    std::error_code e;
    const fs::path p = fs::absolute(sys::fsPath(path), e);
    return e ? path : sys::utf8Path(p.lexically_normal());
}

bool exists(const std::string& path) {
    std::error_code e;
    return fs::exists(fs::symlink_status(sys::fsPath(path), e));
}

std::string readRecord(const std::string& path) {
    std::string text;
    if (std::FILE* f = sys::openFile(path, "rb")) {
        char block[1 << 14];
        size_t got;
        while ((got = std::fread(block, 1, sizeof block, f)) > 0) text.append(block, got);
        std::fclose(f);
    }
    return text;
}

// Written whole under a temporary name, then renamed, like an output; a
// record that cannot be written only means those outputs count as foreign
// next time (they go to the trash, nothing is lost).
void writeRecord(const std::string& path, const std::string& text) {
    const std::string temporary = temporaryNameBeside(path);
    std::FILE* f = sys::openFile(temporary, "wbx");
    if (!f) return;
    const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    if (std::fclose(f) == 0 && ok && sys::renameReplacing(temporary, path)) return;
    sys::removeFile(temporary);
}

constexpr const char RecordHeading[] = "kestro outputs 1\n";

std::string recordLine(const std::string& name, uint64_t size, int64_t time) {
    return std::to_string(size) + ' ' + std::to_string(time) + ' ' + name + '\n';
}

// Names as a file system that ignores letter case compares them, near
// enough: only a look by name can tell, so a false match costs one look.
std::string foldedLetters(std::string name) {
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name;
}

constexpr const char JournalPrefix[] = "run-";
constexpr size_t JournalPrefixLength = sizeof JournalPrefix - 1;

// Calls `each` with the name of every entry of `dir`; false when the folder
// could not be listed whole.
template <typename Each>
bool forEachName(const std::string& dir, Each each) {
    std::error_code e;
    for (fs::directory_iterator entry(sys::fsPath(dir), e), end; !e && entry != end; entry.increment(e))
        each(sys::utf8Path(entry->path().filename()));
    return !e;
}

// The temporary files that the process `pid` left in `dir`.
void removeTemporaryFiles(const std::string& dir, long pid) {
    forEachName(dir, [&](const std::string& name) {
        long owner = 0;
        if (isTemporaryOutputName(name, owner) && owner == pid) sys::removeFile(dir + "/" + name);
    });
}

// The folder of an absolute path; a root ("/", "C:\") keeps its separator.
std::string folderPart(const std::string& path) {
    const size_t slash = sys::lastSeparator(path);
    const bool root = slash == 0 || (sys::BackslashSeparates && slash == 2 && path[1] == ':');
    return path.substr(0, root ? slash + 1 : slash);
}

}  // namespace

RunOutputGuard::RunOutputGuard(Session& form, Trash& trash) : form_(form), trash_(trash) {
    for (const std::string& p : form.List2) {
        lastInQueue_[normal(p)] = queue_.size();
        queue_.push_back(normal(p));
    }
    const std::string journals = journalFolder();
    if (journals.empty()) return;
    clearKilledRuns(journals);
    journal_ = journals + "/" + JournalPrefix + std::to_string(sys::processId());
}

std::string RunOutputGuard::journalFolder() {
#ifdef __EMSCRIPTEN__
    return {};  // in the browser every output is new and nothing outlives the page
#else
    const std::string data = sys::userDataFolder();
    return data.empty() ? data : data + "/kestro/runs";
#endif
}

void RunOutputGuard::clearKilledRuns(const std::string& journals) {
    forEachName(journals, [&](const std::string& name) {
        if (name.compare(0, JournalPrefixLength, JournalPrefix) != 0) return;
        char* after = nullptr;
        const long pid = std::strtol(name.c_str() + JournalPrefixLength, &after, 10);
        if (*after != '\0' || pid == sys::processId() || sys::processRuns(pid)) return;
        const std::string journal = journals + "/" + name;
        const std::string folders = readRecord(journal);
        for (size_t at = 0, next; (next = folders.find('\n', at)) != std::string::npos; at = next + 1)
            removeTemporaryFiles(folders.substr(at, next - at), pid);
        sys::removeFile(journal);
    });
}

void RunOutputGuard::noteInJournal(const std::string& dir) {
    if (journal_.empty() || dir.find('\n') != std::string::npos) return;
    if (!journalFile_) {
        std::error_code e;
        fs::create_directories(sys::fsPath(folderPart(journal_)), e);
        journalFile_ = sys::openFile(journal_, "wb");
        if (!journalFile_) {
            journal_.clear();  // no journal: the folder's next run still clears them
            return;
        }
    }
    // On disk before the first temporary file goes into that folder.
    std::fputs((dir + "\n").c_str(), journalFile_);
    std::fflush(journalFile_);
}

RunOutputGuard::~RunOutputGuard() {
    for (const std::string& copy : copies_) sys::removeFile(copy);
    if (journalFile_) {
        std::fclose(journalFile_);
        sys::removeFile(journal_);
    }
    for (auto& [dir, folder] : folders_) {
        if (folder.log) std::fclose(folder.log);
        saveRecord(dir, folder);
    }
}

// The lines added during the run are the whole record unless earlier runs
// left lines (some of whose files may be gone) or a name was written twice;
// then it is written once more, one line a file still there.
void RunOutputGuard::saveRecord(const std::string& dir, const Folder& folder) const {
    if (folder.writtenNow.empty() || (!folder.hadRecord && !folder.repeated)) return;
    std::string text = RecordHeading;
    for (const auto& [name, stamp] : folder.own)
        if (folder.writtenNow.count(name) || exists(dir + "/" + name))
            text += recordLine(name, stamp.size, stamp.modified);
    writeRecord(dir + "/" + RecordName, text);
}

void RunOutputGuard::record(const std::string& dir, Folder& folder, const std::string& name, const FileStamp& stamp) {
    folder.own[name] = stamp;
    if (!folder.log) {
        folder.log = sys::openFile(dir + "/" + RecordName, "ab");
        if (!folder.log) return;
        if (std::ftell(folder.log) == 0) std::fputs(RecordHeading, folder.log);
    }
    std::fputs(recordLine(name, stamp.size, stamp.modified).c_str(), folder.log);
    // Lines reach the file a buffer or a quarter of a second at a time: a
    // killed run leaves at most those last outputs unrecorded (they go to
    // the trash next time, nothing is lost).
    const auto now = std::chrono::steady_clock::now();
    if (now - flushed_ > std::chrono::milliseconds(250)) {
        for (auto& [other, f] : folders_)
            if (f.log) std::fflush(f.log);
        flushed_ = now;
    }
}

// A folder's record, read when the run first writes there; the temporary
// files that a killed run left there go then.
RunOutputGuard::Folder& RunOutputGuard::folderOf(const std::string& path, std::string& name) {
    const std::string dir = folderPart(path);
    name = path.substr(sys::lastSeparator(path) + 1);
    auto [it, added] = folders_.try_emplace(dir);
    if (!added) return it->second;
    Folder& folder = it->second;
    const std::string text = readRecord(dir + "/" + RecordName);
    if (text.compare(0, sizeof RecordHeading - 1, RecordHeading) == 0) {
        size_t at = sizeof RecordHeading - 1;
        while (at < text.size()) {
            size_t end = text.find('\n', at);
            if (end == std::string::npos) break;  // a line cut short is not trusted
            FileStamp stamp;
            char* after = nullptr;
            stamp.size = std::strtoull(text.c_str() + at, &after, 10);
            stamp.modified = std::strtoll(after, &after, 10);
            if (*after == ' ' && after + 1 < text.c_str() + end)
                folder.own[std::string(static_cast<const char*>(after) + 1, text.c_str() + end)] = stamp;
            at = end + 1;
        }
    }
    folder.hadRecord = !text.empty();
    noteInJournal(dir);
    folder.listed = forEachName(dir, [&](const std::string& entry) {
        long pid = 0;
        if (!isTemporaryOutputName(entry, pid)) folder.present.insert(foldedLetters(entry));
        else if (!sys::processRuns(pid)) sys::removeFile(dir + "/" + entry);
    });
    return folder;
}

bool RunOutputGuard::ownUnchanged(const std::string& path) {
    std::string name;
    Folder& folder = folderOf(path, name);
    auto it = folder.own.find(name);
    if (it == folder.own.end()) return false;
    FileStamp now;
    return fileStamp(path, now) && now == it->second;
}

bool RunOutputGuard::writtenThisRun(const std::string& path) {
    std::string name;
    return folderOf(path, name).writtenNow.count(name) > 0;
}

bool RunOutputGuard::mayExist(const std::string& given) {
    std::string name;
    Folder& folder = folderOf(normal(given), name);
    return !folder.listed || folder.present.count(foldedLetters(name)) > 0;
}

bool RunOutputGuard::waitingInQueue(const std::string& path) const {
    auto it = lastInQueue_.find(path);
    return it != lastInQueue_.end() && it->second > current_;
}

RunLogFile* RunOutputGuard::logEntry() { return form_.runLog.current(); }

void RunOutputGuard::appending(const std::string& given) {
    const std::string path = normal(given);
    if (exists(path) && !writtenThisRun(path) && !ownUnchanged(path)) foreignAppends_.insert(path);
}

void RunOutputGuard::replacing(const std::string& given) {
    const std::string path = normal(given);
    if (!exists(path) || form_.replaceInPlace || !trash_.available()) return;
    const bool queued = waitingInQueue(path);
    if (!queued && (writtenThisRun(path) || ownUnchanged(path))) return;
    std::string kept;
    if (queued && !trash_.saysWhere()) {
        // Read from a copy of its own, as the trash does not say where it is.
        std::error_code e;
        kept = temporaryNameBeside(sys::utf8Path(fs::temp_directory_path(e) / "x"));
        if (e || !fs::copy_file(sys::fsPath(path), sys::fsPath(kept), e) || e) raise(err::PathFileAccess);
        copies_.push_back(kept);
    }
    std::string where;
    // Nothing replaces a file that could not be kept.
    if (!trash_.moveToTrash(path, where)) raise(err::PathFileAccess);
    if (queued) moved_[path] = kept.empty() ? where : kept;
    if (RunLogFile* f = logEntry()) f->replaced.push_back(path);
}

void RunOutputGuard::written(const std::string& given, const FileStamp* stamp) {
    const std::string path = normal(given);
    if (foreignAppends_.erase(path)) return;
    std::string name;
    Folder& folder = folderOf(path, name);
    if (!folder.writtenNow.insert(name).second) folder.repeated = true;
    if (name.find('\n') != std::string::npos || !stamp) return;
    record(folderPart(path), folder, name, *stamp);
}

void RunOutputGuard::removed(const std::string& given) {
    if (RunLogFile* f = logEntry()) f->removed.push_back(normal(given));
}

std::string RunOutputGuard::readFrom(const std::string& path) {
    if (moved_.empty() || current_ >= queue_.size()) return path;
    const std::string p = normal(path);
    if (p != queue_[current_]) return path;
    auto it = moved_.find(p);
    return it == moved_.end() ? path : it->second;
}

}  // namespace kestro
