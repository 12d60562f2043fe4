// ZOL_WriteLog: the library's single logging entry. Filters, formats and reports one record to the
// information-model agent as a diagnostic log object.
#include "foundation/log_internal.h"

#include <cstdarg>

#include "bounds_checked.h"
#include "im_agent.h"
#include "ruk_str.h"

namespace zol::log {
namespace {

bool AddText(void *pObj, const char *pcText, void *pHandle) {
    return IM_Agent_AddPara(pObj, IM_AGENT_PARA_TEXT, RUK_StrLen(pcText), pcText, pHandle) == RUK_OK;
}

// Identity first (slot, CPU, process, thread), then the record's own texts in order.
bool AddParams(void *pObj, const char *const *ppcParams, u32 ulParamNum, void *pHandle) {
    const LogIdentity &stId = ZOL_LogIdentityInit();
    if (!AddText(pObj, stId.szSlot, pHandle) ||
        IM_Agent_AddPara(pObj, IM_AGENT_PARA_U32, sizeof(stId.ulCpuId), &stId.ulCpuId, pHandle) != RUK_OK ||
        !AddText(pObj, stId.szProcess, pHandle) || !AddText(pObj, ZOL_LogThreadIdent(), pHandle)) {
        return false;
    }
    for (u32 i = 0; i < ulParamNum; ++i) {
        if (!AddText(pObj, ppcParams[i], pHandle)) {
            return false;
        }
    }
    return true;
}

} // namespace

void ZOL_LogReport(u32 ulLogType, const char *const *ppcParams, u32 ulParamNum) {
    if (ulLogType >= ZOL_LOG_TYPE_NUM) {
        return;
    }
    const LogTypeEntry &stType = g_astLogType[ulLogType];
    void *pHandle = IM_Agent_GetHandle();
    void *pObj = nullptr;
    if (IM_Agent_ObjCreate(IM_AGENT_OBJ_DIAG_LOG, stType.ulLogId, &pObj, pHandle) != RUK_OK || pObj == nullptr) {
        return;
    }
    if (ulParamNum != stType.ulParaNum || !AddParams(pObj, ppcParams, ulParamNum, pHandle)) {
        (void)IM_Agent_ObjFree(pObj, pHandle);
        return;
    }
    (void)IM_Agent_Send(pObj, pHandle);
}

} // namespace zol::log

extern "C" void ZOL_WriteLog(const ZOL_LogPoint *pstPoint, const char *pcTag, const char *const *ppcTexts,
                             u32 ulTextNum, const char *pcFormat, ...) {
    using namespace zol::log;
    if (pstPoint == nullptr || (ppcTexts == nullptr && ulTextNum != 0)) {
        return;
    }
    u32 ulCallCnt = 0;
    if (pstPoint->ucFilter != 0 && !ZOL_LogFilterCheck(pcTag, &ulCallCnt)) {
        return;
    }
    // The whole text, prefix included, is cut to fit the buffer rather than refused.
    char szMsg[ZOL_LOG_MSG_BUF_LEN];
    int iPrefix = 0;
    if (ulCallCnt > 0) {
        iPrefix = sprintf_s(szMsg, sizeof(szMsg), "callCnt:%u,", ulCallCnt);
        if (iPrefix < 0) {
            return;
        }
    }
    va_list args;
    va_start(args, pcFormat);
    int iLen = vsnprintf_truncated_s(szMsg + iPrefix, sizeof(szMsg) - iPrefix, pcFormat, args);
    va_end(args);
    if (iLen < 0) {
        return;
    }
    // Texts beyond the capacity are dropped; the count then matches no log type and nothing is reported.
    const char *apcParams[kMaxLogParams];
    u32 ulParamNum = 0;
    for (u32 i = 0; i < ulTextNum && ulParamNum < kMaxLogParams; ++i) {
        apcParams[ulParamNum++] = ppcTexts[i];
    }
    if (ulParamNum < kMaxLogParams) {
        apcParams[ulParamNum++] = szMsg;
    }
    ZOL_LogReport(pstPoint->ucLogType, apcParams, ulParamNum);
}

extern "C" void ZOL_SetImAgentHandle(void *pHandle) {
    (void)pHandle; // the writer asks the agent for its handle at every report
}
