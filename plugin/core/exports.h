// The nine exported functions; what they do and who calls them is in lumsar/plugin.h, whose
// types they must match.
#pragma once

#include <string>
#include <type_traits>

#include "core/export.h"
#include "lumsar/plugin.h"

extern "C" {
LUMSAR_EXPORT int Init(const lumsar::SpiceSendFunc& sendFunc,
                       const lumsar::SpicePostEventFunc& postEventFunc, const std::string& vmId,
                       const std::string& config);
LUMSAR_EXPORT void Event(int event);
LUMSAR_EXPORT int Ctrl(const std::string& command, char* output, int& outputLength);
LUMSAR_EXPORT void DeInit();

LUMSAR_EXPORT int RdpInit(const char* vmId, lumsar::RdpSendFunc sendData);
LUMSAR_EXPORT void RdpEvent(int event);
LUMSAR_EXPORT void Handler(unsigned char* data, int len);
LUMSAR_EXPORT int ShareAll(int sessionId);
LUMSAR_EXPORT void RdpDeInit();
}

static_assert(std::is_same_v<decltype(Init), lumsar::InitFunc>);
static_assert(std::is_same_v<decltype(Event), lumsar::EventFunc>);
static_assert(std::is_same_v<decltype(Ctrl), lumsar::CtrlFunc>);
static_assert(std::is_same_v<decltype(DeInit), lumsar::DeInitFunc>);
static_assert(std::is_same_v<decltype(RdpInit), lumsar::RdpInitFunc>);
static_assert(std::is_same_v<decltype(RdpEvent), lumsar::RdpEventFunc>);
static_assert(std::is_same_v<decltype(Handler), lumsar::HandlerFunc>);
static_assert(std::is_same_v<decltype(ShareAll), lumsar::ShareAllFunc>);
static_assert(std::is_same_v<decltype(RdpDeInit), lumsar::RdpDeInitFunc>);
