// Stand-in information-model agent: objects are kept in memory and each sent object becomes one JSON
// line appended to a file, so that tests (and people) can read what the library reported.
#include "im_agent.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <string>
#include <unistd.h>

#include "plat_fault.h"

namespace {

constexpr u32 kObjMagic = 0x494D4F42; // "IMOB"

struct ImObject {
    u32 magic;
    u32 objType;
    u32 logId;
    u32 paraCount;
    std::string params; // the JSON values, comma-separated, in the order added
};

// The only agent of the process; its address is the handle.
int g_agent;

ImObject *CheckedObject(void *pObj) {
    auto *obj = static_cast<ImObject *>(pObj);
    return (obj != nullptr && obj->magic == kObjMagic) ? obj : nullptr;
}

void DestroyObject(ImObject *obj) {
    obj->magic = 0; // a stale pointer is refused as long as the memory is not reused
    delete obj;
}

// Appends a text as a JSON string. Bytes from 0x80 up pass unchanged (texts are UTF-8).
void AppendJsonString(std::string &out, const char *pcText, u32 ulLength) {
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (u32 i = 0; i < ulLength; ++i) {
        const unsigned char ch = static_cast<unsigned char>(pcText[i]);
        if (ch == '"' || ch == '\\') {
            out += '\\';
            out += static_cast<char>(ch);
        } else if (ch < 0x20) {
            const char esc[] = {'\\', 'u', '0', '0', kHex[ch >> 4], kHex[ch & 0xF]};
            out.append(esc, sizeof esc);
        } else {
            out += static_cast<char>(ch);
        }
    }
    out += '"';
}

bool IsValidPara(u32 ulParaType, u32 ulLength, const void *pData) {
    if (ulParaType == IM_AGENT_PARA_U32) {
        return ulLength == sizeof(u32) && pData != nullptr;
    }
    return ulParaType == IM_AGENT_PARA_TEXT && (pData != nullptr || ulLength == 0);
}

const char *OutputPath() {
    const char *path = std::getenv("ZOL_IMAGENT_FILE");
    return (path != nullptr && *path != '\0') ? path : IM_AGENT_DEFAULT_FILE;
}

// One write of the whole line: with O_APPEND the kernel places it at the end of the file in one piece,
// which is what keeps lines of concurrent senders (threads or processes) from interleaving.
u32 AppendLine(const std::string &line) {
    const int fd = open(OutputPath(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        return RUK_ERR_SYSTEM;
    }
    ssize_t written;
    do {
        written = write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    close(fd);
    // A short write cannot be completed without risking interleaving, so it counts as a failure.
    return written == static_cast<ssize_t>(line.size()) ? RUK_OK : RUK_ERR_SYSTEM;
}

} // namespace

extern "C" void *IM_Agent_GetHandle(void) {
    return &g_agent;
}

extern "C" u32 IM_Agent_ObjCreate(u32 ulObjType, u32 ulLogId, void **ppObj, void *pHandle) {
    (void)pHandle; // one agent per process: every handle means the same one
    if (plat::FaultHit("IM_Agent_ObjCreate")) {
        return RUK_ERR_INJECTED;
    }
    if (ppObj == nullptr) {
        return RUK_ERR_PARAM;
    }
    auto *obj = new (std::nothrow) ImObject{kObjMagic, ulObjType, ulLogId, 0, std::string()};
    if (obj == nullptr) {
        return RUK_ERR_NOMEM;
    }
    *ppObj = obj;
    return RUK_OK;
}

extern "C" u32 IM_Agent_AddPara(void *pObj, u32 ulParaType, u32 ulLength, const void *pData, void *pHandle) {
    (void)pHandle;
    if (plat::FaultHit("IM_Agent_AddPara")) {
        return RUK_ERR_INJECTED;
    }
    ImObject *obj = CheckedObject(pObj);
    if (obj == nullptr || !IsValidPara(ulParaType, ulLength, pData)) {
        return RUK_ERR_PARAM;
    }
    try {
        std::string value;
        if (ulParaType == IM_AGENT_PARA_U32) {
            u32 number = 0;
            std::memcpy(&number, pData, sizeof number); // the caller's value need not be aligned
            value = std::to_string(number);
        } else {
            AppendJsonString(value, static_cast<const char *>(pData), ulLength);
        }
        // Built aside and appended last, so a failed call leaves the object as it was.
        obj->params.append(obj->paraCount == 0 ? "" : ",").append(value);
    } catch (const std::bad_alloc &) {
        return RUK_ERR_NOMEM;
    }
    ++obj->paraCount;
    return RUK_OK;
}

extern "C" u32 IM_Agent_Send(void *pObj, void *pHandle) {
    (void)pHandle;
    ImObject *obj = CheckedObject(pObj);
    if (obj == nullptr) {
        return RUK_ERR_PARAM;
    }
    u32 status = RUK_ERR_INJECTED;
    if (!plat::FaultHit("IM_Agent_Send")) {
        try {
            const std::string line =
                "{\"logId\":" + std::to_string(obj->logId) + ",\"params\":[" + obj->params + "]}\n";
            status = AppendLine(line);
        } catch (const std::bad_alloc &) {
            status = RUK_ERR_NOMEM;
        }
    }
    DestroyObject(obj); // the agent owns the object from here on, whatever happened
    return status;
}

extern "C" u32 IM_Agent_ObjFree(void *pObj, void *pHandle) {
    (void)pHandle;
    ImObject *obj = CheckedObject(pObj);
    if (obj == nullptr) {
        return RUK_ERR_PARAM;
    }
    DestroyObject(obj);
    return RUK_OK;
}
