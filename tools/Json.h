#pragma once
// The report for programs: one object a line, in ASCII, always with the same keys in the same order.

#include <string>

#include "tools/Facts.h"
#include "tools/MessageReport.h"

namespace QuillmarkTool {

std::string jsonOf(MessageReport const& report);
std::string jsonOf(LinkReport const& link);
std::string jsonOf(AddressFacts const& facts);
std::string jsonOf(UriFacts const& facts);
std::string jsonOf(HostFacts const& facts);
std::string jsonOf(IpFacts const& facts);
std::string jsonOf(DnsFacts const& facts);

}  // namespace QuillmarkTool
