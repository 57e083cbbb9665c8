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
}

RunOutputGuard::~RunOutputGuard() {
    for (const std::string& copy : copies_) sys::removeFile(copy);
    // Each record once more, one line a file still there.
    for (auto& [dir, folder] : folders_) {
        if (folder.log) std::fclose(folder.log);
        if (!folder.changed) continue;
        std::string text = RecordHeading;
        for (const auto& [name, stamp] : folder.own)
            if (exists(dir + "/" + name)) text += recordLine(name, stamp.size, stamp.time);
        writeRecord(dir + "/" + RecordName, text);
    }
}

void RunOutputGuard::record(const std::string& dir, Folder& folder, const std::string& name, const Stamp& stamp) {
    folder.own[name] = stamp;
    folder.changed = true;
    if (!folder.log) {
        folder.log = sys::openFile(dir + "/" + RecordName, "ab");
        if (!folder.log) return;
        if (std::ftell(folder.log) == 0) std::fputs(RecordHeading, folder.log);
    }
    std::fputs(recordLine(name, stamp.size, stamp.time).c_str(), folder.log);
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
            Stamp stamp;
            char* after = nullptr;
            stamp.size = std::strtoull(text.c_str() + at, &after, 10);
            stamp.time = std::strtoll(after, &after, 10);
            if (*after == ' ' && after + 1 < text.c_str() + end)
                folder.own[std::string(static_cast<const char*>(after) + 1, text.c_str() + end)] = stamp;
            at = end + 1;
        }
    }
    std::error_code e;
    for (fs::directory_iterator entry(sys::fsPath(dir), e), end; !e && entry != end; entry.increment(e)) {
        long pid = 0;
        const std::string entryName = sys::utf8Path(entry->path().filename());
        if (isTemporaryOutputName(entryName, pid) && !sys::processRuns(pid)) sys::removeFile(sys::utf8Path(entry->path()));
    }
    return folder;
}

bool RunOutputGuard::ownUnchanged(const std::string& path) {
    std::string name;
    Folder& folder = folderOf(path, name);
    auto it = folder.own.find(name);
    if (it == folder.own.end()) return false;
    Stamp now;
    return fileStamp(path, now.size, now.time) && now == it->second;
}

bool RunOutputGuard::waitingInQueue(const std::string& path) const {
    auto it = lastInQueue_.find(path);
    return it != lastInQueue_.end() && it->second > current_;
}

RunLogFile* RunOutputGuard::logEntry() { return form_.runLog.current(); }

void RunOutputGuard::appending(const std::string& given) {
    const std::string path = normal(given);
    if (exists(path) && !writtenThisRun_.count(path) && !ownUnchanged(path)) foreignAppends_.insert(path);
}

void RunOutputGuard::replacing(const std::string& given) {
    const std::string path = normal(given);
    if (!exists(path) || form_.replaceInPlace || !trash_.available()) return;
    const bool queued = waitingInQueue(path);
    if (!queued && (writtenThisRun_.count(path) || ownUnchanged(path))) return;
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

void RunOutputGuard::written(const std::string& given) {
    const std::string path = normal(given);
    if (foreignAppends_.erase(path)) return;
    writtenThisRun_.insert(path);
    std::string name;
    Folder& folder = folderOf(path, name);
    if (name.find('\n') != std::string::npos) return;
    Stamp stamp;
    if (!fileStamp(path, stamp.size, stamp.time)) return;
    record(folderPart(path), folder, name, stamp);
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
