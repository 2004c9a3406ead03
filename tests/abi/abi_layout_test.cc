// The records of the C boundary are wire formats: sizes and offsets fixed.
#include <gtest/gtest.h>

#include <cstddef>

#include "qaaisp/qaaisp.h"

extern "C" int QaaispHeaderCompiledAsC(void);

static_assert(sizeof(QA_FILETIME) == 8);
static_assert(sizeof(TLSFolderList) == 32);

static_assert(sizeof(FolderDetails) == 52);
static_assert(offsetof(FolderDetails, Deleted) == 4);
static_assert(offsetof(FolderDetails, FirstSeen) == 20);
static_assert(offsetof(FolderDetails, Total) == 24);
static_assert(offsetof(FolderDetails, RecentCount) == 36);
static_assert(offsetof(FolderDetails, LastUID) == 44);

static_assert(sizeof(MessageSummaryRecord) == 1940);
static_assert(offsetof(MessageSummaryRecord, From) == 12);
static_assert(offsetof(MessageSummaryRecord, Subject) == 524);
static_assert(offsetof(MessageSummaryRecord, Received) == 1548);
static_assert(offsetof(MessageSummaryRecord, MessageDate) == 1612);
static_assert(offsetof(MessageSummaryRecord, Attachments) == 1676);
static_assert(offsetof(MessageSummaryRecord, Importance) == 1680);
static_assert(offsetof(MessageSummaryRecord, FlagStatus) == 1684);

static_assert(sizeof(StoreFolderRecord) == 2576);
static_assert(offsetof(StoreFolderRecord, Postoffice) == 512);
static_assert(offsetof(StoreFolderRecord, Folder) == 1024);
static_assert(offsetof(StoreFolderRecord, Name) == 2048);
static_assert(offsetof(StoreFolderRecord, Size) == 2560);
static_assert(offsetof(StoreFolderRecord, Reserved) == 2564);

static_assert(sizeof(MailboxSizeRecord) == 720);
static_assert(offsetof(MailboxSizeRecord, MailboxName) == 128);
static_assert(offsetof(MailboxSizeRecord, SecondName) == 416);
static_assert(offsetof(MailboxSizeRecord, Reserved704) == 704);
static_assert(offsetof(MailboxSizeRecord, QuotaEnabled) == 708);
static_assert(offsetof(MailboxSizeRecord, QuotaLimit) == 712);
static_assert(offsetof(MailboxSizeRecord, CurrentSize) == 716);

static_assert(sizeof(BLOBRecord) == 9220);
static_assert(offsetof(BLOBRecord, Data) == 1024);
static_assert(offsetof(BLOBRecord, Size) == 9216);

static_assert(sizeof(CommandMessageRecord) == 26176);
static_assert(offsetof(CommandMessageRecord, Server) == 1024);
static_assert(offsetof(CommandMessageRecord, DomainName) == 1280);
static_assert(offsetof(CommandMessageRecord, Recipients) == 1536);
static_assert(offsetof(CommandMessageRecord, Sender) == 25536);
static_assert(offsetof(CommandMessageRecord, TimeAcquired) == 26048);
static_assert(offsetof(CommandMessageRecord, NextSendTime) == 26052);
static_assert(offsetof(CommandMessageRecord, MessageID) == 26056);
static_assert(offsetof(CommandMessageRecord, Retries) == 26120);
static_assert(offsetof(CommandMessageRecord, Reserved) == 26124);
static_assert(offsetof(CommandMessageRecord, Priority) == 26128);
static_assert(offsetof(CommandMessageRecord, Status) == 26160);

static_assert(sizeof(FolderRecord) == 1540);
static_assert(offsetof(FolderRecord, Name) == 1024);
static_assert(offsetof(FolderRecord, Reserved) == 1536);

static_assert(sizeof(MessageItemBLOBRecord) == 9604);
static_assert(offsetof(MessageItemBLOBRecord, Mailbox) == 128);
static_assert(offsetof(MessageItemBLOBRecord, Folder) == 256);
static_assert(offsetof(MessageItemBLOBRecord, Filename) == 1280);
static_assert(offsetof(MessageItemBLOBRecord, Data) == 1408);
static_assert(offsetof(MessageItemBLOBRecord, DataLength) == 9600);

static_assert(sizeof(MessageListRecord) == 5380);
static_assert(offsetof(MessageListRecord, Postoffice) == 1024);
static_assert(offsetof(MessageListRecord, Mailbox) == 1152);

static_assert(sizeof(MessageItemRecord) == 2184);
static_assert(offsetof(MessageItemRecord, UID) == 4);
static_assert(offsetof(MessageItemRecord, ID) == 8);
static_assert(offsetof(MessageItemRecord, Xml) == 136);

static_assert(sizeof(MessageFileRecord) == 1160);
static_assert(offsetof(MessageFileRecord, Size) == 1024);
static_assert(offsetof(MessageFileRecord, Time) == 1028);
static_assert(offsetof(MessageFileRecord, Name) == 1032);

static_assert(sizeof(AppointmentRecord) == 648);
static_assert(offsetof(AppointmentRecord, startTime) == 512);
static_assert(offsetof(AppointmentRecord, endTime) == 516);
static_assert(offsetof(AppointmentRecord, id) == 520);
static_assert(offsetof(AppointmentRecord, calendar) == 584);

TEST(Abi, HeaderCompilesAsCWithTheSameLayouts) {
  // The C translation unit checks the same sizes with its own asserts and
  // reports the sum of them, so a C-only layout difference shows here too.
  EXPECT_EQ(QaaispHeaderCompiledAsC(),
            52 + 1940 + 2576 + 720 + 9220 + 26176 + 1540 + 9604 + 5380 + 2184 + 1160 + 648);
}
