// The stand-in OM client: strict document parsing and lookups, the frame protocol seen from a fake
// framework, hostile input, and failures without a framework or injected.
#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <unistd.h>

#include "omcc.h"
#include "omcc_frame.h"
#include "standin_ctl.h"

#include "om_support.h"

namespace {

using om_test::ProcPath;
const auto JsonDoc = om_test::Doc;

std::string XmlDoc(u32 pid, const std::string &body) {
    return "<diagnose xmlns=\"urn:korvex:yang:korvex-diagnose\"><zol xmlns=\"urn:korvex:yang:korvex-diagnose-zol\">"
           "<processes><process><process-id>" +
           std::to_string(pid) + "</process-id>" + body + "</process></processes></zol></diagnose>";
}

OMCC_DOC_S *Parse(const std::string &text) {
    OMCC_BYTES_S b{reinterpret_cast<const u8 *>(text.data()), text.size()};
    return omcc_parse_bytes(nullptr, &b);
}

// Type leaf of a command below the process node, or a marker of what was missing.
std::string TypeOf(const std::string &text, u32 pid, const char *pcCmd) {
    OMCC_DOC_S *doc = Parse(text);
    if (doc == nullptr) {
        return "<no doc>";
    }
    std::string out = "<no process>";
    OMCC_NODE_S *proc = omcc_find_node(omcc_doc_root(doc), ProcPath(pid).c_str());
    OMCC_NODE_S *cmd = proc != nullptr ? omcc_find_node(proc, pcCmd) : nullptr;
    const char *type = nullptr;
    if (proc != nullptr) {
        out = cmd == nullptr ? "<no cmd>" : "<no type " + std::to_string(omcc_parse_str(cmd, "type", &type)) + ">";
    }
    if (type != nullptr) {
        out = type;
    }
    omcc_free_doc(doc);
    return out;
}

TEST(OmccDoc, ParsesJsonAndXmlFindsNodesAndRefusesWhatTheModelsDoNotAllow) {
    const std::string both = JsonDoc(9, ",\"get-ipc-info\":{\"type\":\"a\"},\"get-rpc-info\":{\"type\":\"b\"}");
    const struct {
        std::string text;
        u32 pid;
        const char *cmd, *type;
    } found[] = {
        {XmlDoc(77, "<get-rpc-info><type>error</type></get-rpc-info>"), 77, "get-rpc-info", "error"},
        {"  \n" + XmlDoc(77, "<get-rpc-info/>"), 77, "get-rpc-info", "<no type 2>"},
        {both, 9, "get-ipc-info", "a"}, // both commands, each found by its own name
        {both, 9, "get-rpc-info", "b"},
        {JsonDoc(9, ",\"get-ipc-info\":{}"), 9, "get-rpc-info", "<no cmd>"},
        // Another process's entry is not this one's, though libyang matches the path up to "processes".
        {JsonDoc(9, ",\"get-ipc-info\":{}"), 10, "get-ipc-info", "<no process>"},
        {JsonDoc(4294967295u, ",\"get-ipc-info\":{\"type\":\"x\"}"), 4294967295u, "get-ipc-info", "x"},
        {"{}", 1, "get-ipc-info", "<no process>"}, // parses, but has nothing in it
    };
    for (const auto &f : found)
        EXPECT_EQ(TypeOf(f.text, f.pid, f.cmd), f.type) << f.text;

    // Refused: what the models do not allow (type length is 1..64, the process id a number).
    const std::string refused[] = {JsonDoc(1, ",\"get-ipc-info\":{\"type\":\"a\",\"bogus\":1}"),
                                   XmlDoc(1, "<get-ipc-info><bogus/></get-ipc-info>"),
                                   "{\"no-such-module:x\":{}}",
                                   JsonDoc(1, ",\"get-ipc-info\":{\"type\":\"\"}"),
                                   "{\"korvex-diagnose:diagnose\":{\"korvex-diagnose-zol:zol\":{\"processes\":{"
                                   "\"process\":[{\"process-id\":\"1\"}]}}}}",
                                   "{\"korvex-diagnose:diagnose\":",
                                   std::string("{\0}", 3),
                                   "",
                                   "{} x"};
    for (const std::string &text : refused)
        EXPECT_EQ(TypeOf(text, 1, "get-ipc-info"), "<no doc>") << text;
    const std::string good = JsonDoc(1, ",\"get-ipc-info\":{\"type\":\"a\"}");
    ASSERT_EQ(PLAT_FaultInject("omcc_parse_bytes", 0, 1), 0u);
    EXPECT_EQ(TypeOf(good, 1, "get-ipc-info"), "<no doc>");
    EXPECT_EQ(TypeOf(good, 1, "get-ipc-info"), "a");
}

std::atomic<int> g_handled{0};
std::atomic<bool> g_secondBorrowRefused{false};

u32 EchoHandler(void *ctx, const OMCC_BYTES_S *req) {
    ++g_handled;
    OMCC_TTY_S *tty = omcc_tty_borrow(ctx, 1);
    if (tty == nullptr) {
        return 99;
    }
    g_secondBorrowRefused = omcc_tty_borrow(ctx, 1) == nullptr;
    omcc_tty_printf(tty, "got %zu bytes: %.*s", req->zLen, static_cast<int>(req->zLen),
                    reinterpret_cast<const char *>(req->pucData));
    omcc_tty_return(tty);
    return static_cast<u32>(req->zLen);
}

OMCC_SUBSCRIPTION_S Sub(const char *path) {
    return OMCC_SUBSCRIPTION_S{path, OMCC_SUB_KIND_REQUEST, EchoHandler, {}};
}

using om_test::FrameOf;

TEST(OmccClient, TalksTheFrameProtocol) {
    om_test::FakeFramework fw;
    OMCC_CLIENT_S *client = omcc_client_new("Zol_test", 2);
    ASSERT_NE(client, nullptr);
    OMCC_SUBSCRIPTION_S a = Sub("/a"), b = Sub("/b"), empty = Sub(""), kind = Sub("/c");
    kind.ullKind = 1;
    EXPECT_TRUE(omcc_subscribe(client, &a) == 0 && omcc_subscribe(client, &b) == 0);
    EXPECT_TRUE(omcc_subscribe(client, &empty) == OMCC_ERR_PARAM && omcc_subscribe(client, &kind) == OMCC_ERR_PARAM);
    EXPECT_EQ(omcc_run(client, 0), -OMCC_ERR_STATE);
    ASSERT_GE(omcc_connect(client, 0), 0);
    EXPECT_EQ(omcc_connect(client, 0), -OMCC_ERR_STATE);
    fw.Accept();
    EXPECT_EQ(omcc_activate(client, 0, 0, 0), 0);
    plat::omcc::Frame f = fw.Next();
    EXPECT_EQ(std::tie(f.usType, f.ulArg, f.payload), std::make_tuple(OMCC_FRAME_HELLO, u32(getpid()), "Zol_test"));
    EXPECT_EQ(fw.Next().payload, "/a");
    EXPECT_EQ(fw.Next().payload, "/b");
    EXPECT_EQ(omcc_run(client, 0), 0); // nothing arrived yet
    // A request split across two writes is served once it is whole.
    std::string req = FrameOf(OMCC_FRAME_REQUEST, 42, 1, "hello");
    fw.SendRaw(req.substr(0, 10));
    EXPECT_EQ(omcc_run(client, 0), 0);
    fw.SendRaw(req.substr(10) + FrameOf(OMCC_FRAME_OUTPUT, 1, 0, "ignored by clients"));
    EXPECT_EQ(omcc_run(client, 0), 1);
    EXPECT_TRUE(g_secondBorrowRefused);
    f = fw.Next();
    EXPECT_EQ(std::tie(f.usType, f.ulId, f.payload), std::make_tuple(OMCC_FRAME_OUTPUT, 42u, "got 5 bytes: hello"));
    f = fw.Next();
    EXPECT_EQ(std::tie(f.usType, f.ulArg), std::make_tuple(OMCC_FRAME_END, 5u));
    fw.HangUp();
    EXPECT_EQ(omcc_run(client, 0), -OMCC_ERR_IO);
    omcc_disconnect(client);
    EXPECT_EQ(omcc_tty_borrow(&a, 1), nullptr); // not a request context
}

// Each hostile stream ends the connection with its code and leaves the client able to reconnect.
TEST(OmccClient, SurvivesHostileStreams) {
    om_test::FakeFramework fw;
    OMCC_CLIENT_S *client = omcc_client_new("Zol_hostile", 2);
    OMCC_SUBSCRIPTION_S a = Sub("/a");
    ASSERT_EQ(omcc_subscribe(client, &a), 0);
    const std::pair<std::string, s32> streams[] = {
        {om_test::kHugeFrame, -OMCC_ERR_PROTOCOL},
        {FrameOf(77, 0, 0, ""), -OMCC_ERR_PROTOCOL},
        {om_test::RandomBytes(4096, 7), -OMCC_ERR_PROTOCOL},
        {FrameOf(OMCC_FRAME_REQUEST, 1, 0, "abcdef").substr(0, 19), 0}}; // truncated: waits for the rest
    const int before = g_handled.load();
    for (const auto &[bytes, rc] : streams) {
        ASSERT_GE(omcc_connect(client, 0), 0);
        fw.Accept();
        fw.SendRaw(bytes);
        EXPECT_EQ(omcc_run(client, 0), rc);
        fw.HangUp();
        EXPECT_LT(omcc_run(client, 0), 0);
        omcc_disconnect(client);
    }
    EXPECT_EQ(g_handled.load(), before); // no handler ran
}

TEST(OmccClient, FailsCleanlyWithoutFrameworkAndOnInjection) {
    setenv(OMCC_SOCKET_ENV, om_test::TempSocket("nobody").c_str(), 1);
    OMCC_CLIENT_S *client = omcc_client_new("Zol_alone", 2);
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(omcc_connect(client, 0), -OMCC_ERR_IO);
    EXPECT_EQ(omcc_activate(client, 0, 0, 0), OMCC_ERR_STATE);
    EXPECT_EQ(omcc_client_new(std::string(OMCC_NAME_MAX + 1, 'x').c_str(), 2), nullptr);
    OMCC_SUBSCRIPTION_S a = Sub("/a");
    for (const char *call : {"omcc_client_new", "omcc_subscribe", "omcc_connect", "omcc_activate", "omcc_run"}) {
        ASSERT_EQ(PLAT_FaultInject(call, 0, 1), 0u);
    }
    EXPECT_EQ(omcc_client_new("Zol_x", 2), nullptr);
    EXPECT_EQ(omcc_subscribe(client, &a), OMCC_ERR_INJECTED);
    EXPECT_EQ(omcc_connect(client, 0), -OMCC_ERR_INJECTED);
    EXPECT_EQ(omcc_activate(client, 0, 0, 0), OMCC_ERR_INJECTED);
    EXPECT_EQ(omcc_run(client, 0), -OMCC_ERR_INJECTED);
    EXPECT_EQ(omcc_subscribe(client, &a), 0);
    unsetenv(OMCC_SOCKET_ENV);
}

} // namespace
