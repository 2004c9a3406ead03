// The store's toolbox of file operations: deletes and moves that retry while
// another process still holds a file, whole-tree delete, move and copy,
// directory creation, and whole-file reads and writes.
//
// Paths are native. Operations that can fail in a way the caller must know
// of throw Exception with kFileManagementSource as the source file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qaaisp {

inline constexpr const char* kFileManagementSource =
    "..\\CLIENTS\\QAMAPI\\QAMSLIB\\common\\FileManagement";

// Deletes path. While the delete fails for any reason but a missing file or
// directory, and retry is set, it tries again once a second until more than
// max_attempts retries were made, with a warning line every fifth attempt.
// True if the file was deleted or was already gone.
bool DeleteWithRetry(const std::string& path, bool retry, int max_attempts);

// Moves source to target (never over an existing target), retrying like
// DeleteWithRetry but sleeping before each new attempt. True if moved.
bool MoveWithRetry(const std::string& source, const std::string& target, bool retry,
                   int max_attempts);

// Makes path and every missing parent. Components are matched to existing
// directories without regard to case; missing ones are made as spelled.
// Throws on an empty or invalid path and when a directory cannot be made.
void EnsureDirectory(const std::string& path);

// Results of DeleteTree.
inline constexpr int kDeleteTreeNothing = 0;  // nothing there, or the delete failed
inline constexpr int kDeleteTreeDone = 1;
inline constexpr int kDeleteTreePartial = 2;  // a directory or entry could not be removed

// Deletes the files of a directory (and its subdirectories when recursive),
// then the directory itself when delete_root is set. A file path is deleted
// when delete_root is set.
int DeleteTree(const std::string& path, bool recursive, bool delete_root);

// Moves a file or directory; with replace an existing target is deleted
// first. Throws if the source is missing or the move fails.
void MoveTree(const std::string& source, const std::string& target, bool replace);

// Copies a file or directory tree; with replace existing files are
// overwritten. Throws if the source is missing or a copy fails.
void CopyTree(const std::string& source, const std::string& target, bool replace);

// Writes bytes as the whole content of path, making its parent. A failure
// returns false when quiet and throws otherwise.
bool WriteWholeFile(const std::string& path, std::string_view bytes, bool quiet);

// Reads exactly size bytes from the start of path into out. True if they
// were all read.
bool ReadWholeFile(const std::string& path, void* out, size_t size);
// Reads the whole file into out. True on success.
bool ReadWholeFile(const std::string& path, std::string* out);
// Reads the whole file into a malloc block with a NUL after the content,
// which the caller frees. Returns the length, or -1 (and null) on failure.
int64_t ReadFileIntoBuffer(const std::string& path, char** out);

// True if anything (file or directory) exists at path.
bool FileExists(const std::string& path);
// True if a directory exists at path.
bool DirectoryExists(const std::string& path);

// The parent of a native path ("" when there is none; "/" for the root).
std::string ParentDirectory(std::string_view path);

}  // namespace qaaisp
