/* The information-model agent: objects with ordered parameters, sent to the device's information model.
 * The stand-in appends each sent object as one JSON line {"logId":<n>,"params":[...]} (texts as JSON
 * strings, 32-bit values as JSON numbers, in the order added) to the file named by ZOL_IMAGENT_FILE, or
 * to /tmp/zol_imagent.jsonl without it. Each line is written whole by one write, so lines of concurrent
 * senders never interleave. */
#ifndef IM_AGENT_H
#define IM_AGENT_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define IM_AGENT_OBJ_DIAG_LOG 9u /* object type of a diagnostic log record */
#define IM_AGENT_PARA_U32 6u     /* parameter: 32-bit unsigned value, length 4 */
#define IM_AGENT_PARA_TEXT 9u    /* parameter: text given with its length, no terminator */
#define IM_AGENT_DEFAULT_FILE "/tmp/zol_imagent.jsonl"

/* The process's agent handle (never null in the stand-in). */
void *IM_Agent_GetHandle(void);

/* Creates an object of ulObjType with ulLogId and stores it in *ppObj. RUK_ERR_PARAM for a null pointer. */
u32 IM_Agent_ObjCreate(u32 ulObjType, u32 ulLogId, void **ppObj, void *pHandle);

/* Appends a parameter to the object. RUK_ERR_PARAM for a null object, an unknown type, a 32-bit value
 * whose length is not 4, or null data with a non-zero length. */
u32 IM_Agent_AddPara(void *pObj, u32 ulParaType, u32 ulLength, const void *pData, void *pHandle);

/* Sends the object and takes it over, also when sending fails (RUK_ERR_SYSTEM when the file cannot be
 * written). */
u32 IM_Agent_Send(void *pObj, void *pHandle);

/* Discards an object that is not sent. */
u32 IM_Agent_ObjFree(void *pObj, void *pHandle);

#ifdef __cplusplus
}
#endif

#endif /* IM_AGENT_H */
