// Stand-in hash service: separate chaining over a fixed bucket array, records allocated zero-filled
// with a small header that ties them to their table.
#include "plat_hash.h"

#include <cstddef>
#include <cstdlib>
#include <mutex>

#include "plat_fault.h"

namespace {

constexpr u32 kTableMagic = 0x48415348;  // "HASH"
constexpr u32 kRecordMagic = 0x48524543; // "HREC"

struct Table;

// Lies in front of every record; the caller sees only the bytes after it.
struct alignas(std::max_align_t) RecordHead {
    RecordHead *next;   // next record of the same bucket, in the order added
    const Table *owner; // table whose HASH_NewData made the record
    u32 magic;
    u32 added; // 1 once the record is in a bucket
};

struct Bucket {
    RecordHead *first;
    RecordHead *last;
};

struct Table {
    u32 magic;
    u32 elmtSize;
    u32 bucketNum;
    HASH_KEY_FUNC_PF pfHash;
    HASH_CMP_FUNC_PF pfCmp;
    Table *nextTable;  // in the registry below
    Bucket buckets[1]; // bucketNum entries
};

// Tables have no destroy call: they live as long as the process. Keeping them on one list leaves them
// reachable, so that leak checkers do not report them (nor their records) at exit.
std::mutex g_registryLock;
Table *g_tables = nullptr;

Table *CheckedTable(void *pTable) {
    auto *table = static_cast<Table *>(pTable);
    return (table != nullptr && table->magic == kTableMagic) ? table : nullptr;
}

RecordHead *HeadOf(const Table *table, void *pElmt) {
    if (table == nullptr || pElmt == nullptr) {
        return nullptr;
    }
    auto *head = reinterpret_cast<RecordHead *>(static_cast<char *>(pElmt) - sizeof(RecordHead));
    return (head->magic == kRecordMagic && head->owner == table) ? head : nullptr;
}

void *DataOf(RecordHead *head) {
    return reinterpret_cast<char *>(head) + sizeof(RecordHead);
}

Bucket &BucketOf(Table *table, const void *pKey) {
    return table->buckets[table->pfHash(pKey) % table->bucketNum];
}

} // namespace

extern "C" void *HASH_CreateNew(s32 iFlags, u32 ulElmtSize, u32 ulBucketNum, HASH_KEY_FUNC_PF pfHash,
                                HASH_CMP_FUNC_PF pfCmp, u32 ulOwner) {
    (void)iFlags;
    (void)ulOwner;
    if (plat::FaultHit("HASH_CreateNew")) {
        return nullptr;
    }
    if (ulElmtSize == 0 || ulBucketNum == 0 || pfHash == nullptr || pfCmp == nullptr) {
        return nullptr;
    }
    auto *table = static_cast<Table *>(std::calloc(1, sizeof(Table) + (ulBucketNum - 1) * sizeof(Bucket)));
    if (table == nullptr) {
        return nullptr;
    }
    *table = Table{kTableMagic, ulElmtSize, ulBucketNum, pfHash, pfCmp, nullptr, {}};
    std::lock_guard<std::mutex> guard(g_registryLock);
    table->nextTable = g_tables;
    g_tables = table;
    return table;
}

extern "C" void *HASH_NewData(void *pTable, u32 ulOwner) {
    (void)ulOwner;
    if (plat::FaultHit("HASH_NewData")) {
        return nullptr;
    }
    Table *table = CheckedTable(pTable);
    if (table == nullptr) {
        return nullptr;
    }
    auto *head = static_cast<RecordHead *>(std::calloc(1, sizeof(RecordHead) + table->elmtSize));
    if (head == nullptr) {
        return nullptr;
    }
    head->owner = table;
    head->magic = kRecordMagic;
    return DataOf(head);
}

extern "C" u32 HASH_AddNode(void *pTable, const void *pKey, void *pElmt, u32 ulOwner) {
    (void)ulOwner;
    if (plat::FaultHit("HASH_AddNode")) {
        return RUK_ERR_INJECTED;
    }
    Table *table = CheckedTable(pTable);
    RecordHead *head = HeadOf(table, pElmt);
    if (table == nullptr || pKey == nullptr || head == nullptr || head->added != 0) {
        return RUK_ERR_PARAM;
    }
    // Appended, so that "first" in HASH_FindElmtFromFirst means the earliest added.
    Bucket &bucket = BucketOf(table, pKey);
    if (bucket.last == nullptr) {
        bucket.first = head;
    } else {
        bucket.last->next = head;
    }
    bucket.last = head;
    head->added = 1;
    return RUK_OK;
}

extern "C" void *HASH_FindElmtFromFirst(void *pTable, const void *pProbe) {
    Table *table = CheckedTable(pTable);
    if (table == nullptr || pProbe == nullptr) {
        return nullptr;
    }
    for (RecordHead *head = BucketOf(table, pProbe).first; head != nullptr; head = head->next) {
        if (table->pfCmp(DataOf(head), pProbe) != 0) {
            return DataOf(head);
        }
    }
    return nullptr;
}

extern "C" void HASH_FreeData(void *pTable, void *pElmt) {
    RecordHead *head = HeadOf(CheckedTable(pTable), pElmt);
    // A record in a bucket stays: freeing it would leave the chain pointing at freed memory.
    if (head == nullptr || head->added != 0) {
        return;
    }
    head->magic = 0;
    std::free(head);
}
