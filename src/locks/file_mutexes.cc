#include "locks/file_mutexes.h"

namespace qaaisp {
namespace {

// Made when the library loads and torn down when it unloads.
FileMutexTable g_file_mutexes;
Mutex g_file_mutexes_mutex("FileManagement::fileMutexesMutex");

}  // namespace

FileMutexTable& fileMutexes() { return g_file_mutexes; }
Mutex& fileMutexesMutex() { return g_file_mutexes_mutex; }

}  // namespace qaaisp
