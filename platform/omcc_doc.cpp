// Request documents of the OM client: strict parsing against the diagnostic YANG modules and path
// lookups, through libyang. One context for the process, created at the first parse.
#include <cstdlib>
#include <libyang/libyang.h>
#include <mutex>
#include <new>
#include <string>

#include "omcc.h"
#include "plat_fault.h"

#ifndef ZOL_YANG_DIR_DEFAULT
#define ZOL_YANG_DIR_DEFAULT "yang"
#endif

struct OmccDoc {
    lyd_node *pstTree = nullptr;
};

namespace {

constexpr const char *kTopModule = "korvex-diagnose-zol"; // imports korvex-diagnose from the same directory

// libyang's context and its per-call error state are shared; every libyang call here runs under this
// lock, which also makes the lazy creation safe.
std::mutex g_yangLock;
ly_ctx *g_pstCtx = nullptr; // guarded by g_yangLock; never freed: documents may be parsed until exit

ly_ctx *ContextLocked() {
    if (g_pstCtx != nullptr) {
        return g_pstCtx;
    }
    ly_log_options(LY_LOSTORE_LAST); // keep the last error for the caller, print nothing
    const char *pcDir = std::getenv(OMCC_YANG_DIR_ENV);
    if (pcDir == nullptr || pcDir[0] == '\0') {
        pcDir = ZOL_YANG_DIR_DEFAULT;
    }
    ly_ctx *pstCtx = nullptr;
    if (ly_ctx_new(pcDir, LY_CTX_DISABLE_SEARCHDIR_CWD, &pstCtx) != LY_SUCCESS) {
        return nullptr;
    }
    if (ly_ctx_load_module(pstCtx, kTopModule, nullptr, nullptr) == nullptr) {
        ly_ctx_destroy(pstCtx);
        return nullptr; // retried at the next parse: the directory may be fixed meanwhile
    }
    g_pstCtx = pstCtx;
    return g_pstCtx;
}

LYD_FORMAT FormatOf(const std::string &text) {
    size_t first = text.find_first_not_of(" \t\r\n");
    return (first != std::string::npos && text[first] == '<') ? LYD_XML : LYD_JSON;
}

// libyang's JSON reader accepts a document that ends inside its top-level object or is followed by more
// text; a request must be exactly one balanced object. Strings are skipped with their escapes.
bool JsonFramingValid(const std::string &text) {
    int depth = 0;
    bool seenValue = false;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char ch = text[i];
        if (inString) {
            i += (ch == '\\') ? 1 : 0;
            inString = ch != '"';
        } else if (ch == '"') {
            inString = true;
        } else if (ch == '{' || ch == '[') {
            if (depth == 0 && seenValue) {
                return false; // a second top-level value
            }
            ++depth;
            seenValue = true;
        } else if (ch == '}' || ch == ']') {
            if (--depth < 0) {
                return false;
            }
        } else if (depth == 0 && ch != ' ' && ch != '\t' && ch != '\r' && ch != '\n') {
            return false; // text outside the top-level object
        }
    }
    return seenValue && depth == 0 && !inString;
}

lyd_node *AsLyd(OMCC_NODE_S *pstNode) {
    return reinterpret_cast<lyd_node *>(pstNode);
}
OMCC_NODE_S *AsNode(lyd_node *pstNode) {
    return reinterpret_cast<OMCC_NODE_S *>(pstNode);
}

// The node at pcPath from pstNode; null unless the lookup succeeded exactly (libyang reports a partial
// match of a missing list entry as LY_EINCOMPLETE with the deepest existing node).
lyd_node *FindLocked(lyd_node *pstNode, const char *pcPath) {
    lyd_node *pstMatch = nullptr;
    if (lyd_find_path(pstNode, pcPath, 0, &pstMatch) != LY_SUCCESS) {
        return nullptr;
    }
    return pstMatch;
}

} // namespace

extern "C" OMCC_DOC_S *omcc_parse_bytes(void *pSchema, const OMCC_BYTES_S *pstBytes) {
    if (plat::FaultHit("omcc_parse_bytes") || pSchema != nullptr || pstBytes == nullptr ||
        (pstBytes->pucData == nullptr && pstBytes->zLen != 0)) {
        return nullptr;
    }
    // libyang reads a NUL-terminated text; an embedded NUL ends the document early and then fails.
    std::string text(reinterpret_cast<const char *>(pstBytes->pucData), pstBytes->zLen);
    std::lock_guard<std::mutex> guard(g_yangLock);
    ly_ctx *pstCtx = ContextLocked();
    if (pstCtx == nullptr) {
        return nullptr;
    }
    LYD_FORMAT format = FormatOf(text);
    if (format == LYD_JSON && !JsonFramingValid(text)) {
        return nullptr;
    }
    lyd_node *pstTree = nullptr;
    if (lyd_parse_data_mem(pstCtx, text.c_str(), format, LYD_PARSE_STRICT, LYD_VALIDATE_PRESENT, &pstTree) !=
        LY_SUCCESS) {
        lyd_free_all(pstTree);
        return nullptr;
    }
    auto *pstDoc = new (std::nothrow) OmccDoc();
    if (pstDoc == nullptr) {
        lyd_free_all(pstTree);
        return nullptr;
    }
    pstDoc->pstTree = pstTree;
    return pstDoc;
}

extern "C" OMCC_NODE_S *omcc_doc_root(OMCC_DOC_S *pstDoc) {
    return pstDoc == nullptr ? nullptr : AsNode(pstDoc->pstTree);
}

extern "C" OMCC_NODE_S *omcc_find_node(OMCC_NODE_S *pstNode, const char *pcPath) {
    if (pstNode == nullptr || pcPath == nullptr || pcPath[0] == '\0') {
        return nullptr;
    }
    std::lock_guard<std::mutex> guard(g_yangLock);
    return AsNode(FindLocked(AsLyd(pstNode), pcPath));
}

extern "C" s32 omcc_parse_str(OMCC_NODE_S *pstNode, const char *pcLeaf, const char **ppcText) {
    if (pstNode == nullptr || pcLeaf == nullptr || pcLeaf[0] == '\0' || ppcText == nullptr) {
        return OMCC_ERR_PARAM;
    }
    std::lock_guard<std::mutex> guard(g_yangLock);
    lyd_node *pstLeaf = FindLocked(AsLyd(pstNode), pcLeaf);
    if (pstLeaf == nullptr || pstLeaf->schema == nullptr || !(pstLeaf->schema->nodetype & LYD_NODE_TERM)) {
        return OMCC_ERR_NOT_FOUND;
    }
    *ppcText = lyd_get_value(pstLeaf);
    return OMCC_OK;
}

extern "C" void omcc_free_doc(OMCC_DOC_S *pstDoc) {
    if (pstDoc == nullptr) {
        return;
    }
    {
        std::lock_guard<std::mutex> guard(g_yangLock);
        lyd_free_all(pstDoc->pstTree);
    }
    delete pstDoc;
}
