// The per-file mutex table of file management and its guard. Both exist for
// the life of the library, and nothing looks anything up in them: the table
// stays empty and file operations take no per-file mutex.
#pragma once

#include <map>
#include <string>

#include "locks/mutex.h"
#include "locks/unknown_ptr.h"

namespace qaaisp {

// A per-file mutex; nothing makes one.
class FileMutex : public UnknownObject {};

using FileMutexTable = std::map<std::string, UnknownPtr<FileMutex>>;

FileMutexTable& fileMutexes();
Mutex& fileMutexesMutex();

}  // namespace qaaisp
