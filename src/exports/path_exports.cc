// Store path exports.
#include "index/store_paths.h"
#include "qaaisp/qaaisp.h"

extern "C" {

int StoreIndex_SetPaths(StoreIndex* ix) {
  try {
    return qaaisp::SetStoreIndexPaths(ix);
  } catch (...) {
    return 0;
  }
}

}  // extern "C"
