// The one place where the IPC header's routing fields change byte order: the wire (network, big-endian)
// form used between the send's header fill and delivery, and the host form every user sees.
#ifndef ZOL_IPC_BYTEORDER_H
#define ZOL_IPC_BYTEORDER_H

#include "zol_ipc.h"

namespace zol::ipc {

#if !defined(__BYTE_ORDER__) || !defined(__ORDER_LITTLE_ENDIAN__) || !defined(__ORDER_BIG_ENDIAN__)
#error "the compiler must tell the byte order"
#endif

inline constexpr bool kHostIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

inline u32 HostToNet32(u32 v) {
    return kHostIsLittleEndian ? __builtin_bswap32(v) : v;
}
inline u16 HostToNet16(u16 v) {
    return kHostIsLittleEndian ? __builtin_bswap16(v) : v;
}
// The conversion is its own inverse.
inline u32 NetToHost32(u32 v) {
    return HostToNet32(v);
}
inline u16 NetToHost16(u16 v) {
    return HostToNet16(v);
}

// The five routing fields of a header, in host order.
struct IpcRouting {
    u32 ulSrcNodeId;
    u32 ulDstNodeId;
    u16 usSrcChanId;
    u16 usDstChanId;
    u32 ulMsgLen;
};

// Writes the routing fields in network order (the send's header fill).
inline void StoreRoutingNet(IPC_MSG_HEAD_S *pstHead, const IpcRouting &r) {
    pstHead->ulSrcNodeId = HostToNet32(r.ulSrcNodeId);
    pstHead->ulDstNodeId = HostToNet32(r.ulDstNodeId);
    pstHead->usSrcChanId = HostToNet16(r.usSrcChanId);
    pstHead->usDstChanId = HostToNet16(r.usDstChanId);
    pstHead->ulMsgLen = HostToNet32(r.ulMsgLen);
}

// Reads routing fields stored in network order.
inline IpcRouting LoadRoutingNet(const IPC_MSG_HEAD_S *pstHead) {
    return IpcRouting{NetToHost32(pstHead->ulSrcNodeId), NetToHost32(pstHead->ulDstNodeId),
                      NetToHost16(pstHead->usSrcChanId), NetToHost16(pstHead->usDstChanId),
                      NetToHost32(pstHead->ulMsgLen)};
}

// Writes the routing fields in host order (delivery converts the header back with this).
inline void StoreRoutingHost(IPC_MSG_HEAD_S *pstHead, const IpcRouting &r) {
    pstHead->ulSrcNodeId = r.ulSrcNodeId;
    pstHead->ulDstNodeId = r.ulDstNodeId;
    pstHead->usSrcChanId = r.usSrcChanId;
    pstHead->usDstChanId = r.usDstChanId;
    pstHead->ulMsgLen = r.ulMsgLen;
}

} // namespace zol::ipc

#endif // ZOL_IPC_BYTEORDER_H
