// The source names that failure reports of the index layer carry.
#pragma once

namespace qaaisp {

inline constexpr const char* kStoreIndexCoreSource = "..\\SERVICES\\Library\\LIBStoreIndexCore";
inline constexpr const char* kStoreIndexTypeSource = "..\\SERVICES\\Library\\LIBStoreIndexType";
inline constexpr const char* kStoreIndexItemSource = "..\\SERVICES\\Library\\LIBStoreIndexItem";

}  // namespace qaaisp
