// The library's own per-folder file names, each with its one spelling, used
// for every create, test and delete.
#pragma once

namespace qaaisp::files {

inline constexpr const char* kIndexXml = "_index.xml";
inline constexpr const char* kGroupsXml = "_groups.xml";
inline constexpr const char* kIndexBlk = "_index.blk";
inline constexpr const char* kGroupsBlk = "_groups.blk";
inline constexpr const char* kIndexBak = "_index.xml.bak";
inline constexpr const char* kIndexBad = "_index.xml.bad";
inline constexpr const char* kIndexDat = "_index.dat";
inline constexpr const char* kIndexBin = "_index.bin";
inline constexpr const char* kGroupsBin = "_groups.bin";
inline constexpr const char* kChangeFlag = "_CHANGE.DTY";
inline constexpr const char* kCachedFlag = "_CACHED.DTY";
inline constexpr const char* kFolderDat = "_FOLDER.DAT";
inline constexpr const char* kDirSize = "_DIRSIZE.TMP";
inline constexpr const char* kFolderXml = "_folder.xml";
inline constexpr const char* kFolderDty = "_folder.dty";
inline constexpr const char* kOptionsXml = "_options.xml";
inline constexpr const char* kActivityTab = "_activity.tab";
inline constexpr const char* kActivityBlk = "_activity.blk";
inline constexpr const char* kActivityTmp = "_activity.tmp";
inline constexpr const char* kSharesXml = "_Shares.xml";
inline constexpr const char* kAccessXml = "_Access.XML";
// Kept where the file system records no creation time: made once, its
// last-write time stands for the folder's.
inline constexpr const char* kFolderStampFile = ".folder_stamp";

// Store tree directories below a postoffice root.
inline constexpr const char* kMailRootDir = "MAILROOT";
inline constexpr const char* kPubRootDir = "PUBROOT";
inline constexpr const char* kVcfRootDir = "VCFROOT";
inline constexpr const char* kFileRootDir = "FILEROOT";

}  // namespace qaaisp::files
