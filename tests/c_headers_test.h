/* The layout values of the records other programs embed: one list, evaluated by the C and the C++ compiler. */
#ifndef ZOL_C_HEADERS_TEST_H
#define ZOL_C_HEADERS_TEST_H

#define ZOL_TEST_LAYOUTS                                                                                               \
    {                                                                                                                  \
        sizeof(ZOL_LogPoint), sizeof(SllHead), offsetof(SllHead, count), offsetof(DllHead, reserved), sizeof(DllHead), \
            offsetof(HashTable, buckets), sizeof(SYS_AppInfo), offsetof(SYS_AppInfo, ulTaskId),                        \
            offsetof(SYS_AppInfo, pfnInit), sizeof(g_zolCommPatchRsv2)                                                 \
    }

#endif /* ZOL_C_HEADERS_TEST_H */
