#pragma once
// From a message to what is in it, by the library.

#include <optional>
#include <string>
#include <vector>

#include "include2/EmailAddress"
#include "include2/Exception"
#include "include2/IPAddress"
#include "include2/Uri"
#include "tools/MessageReport.h"
#include "tools/Mime.h"

namespace QuillmarkTool {

struct ExamineOptions {
    std::string swapTemplate;  ///< name template of swap files
    unsigned int memory = 0;   ///< bytes of a body kept in memory before it goes to a swap file
    bool liberal = true;       ///< take bare domains for links
};

/// Everything about @p message but its place in a file. Never throws for what is in the message: that
/// ends up in the report's errors.
MessageReport examine(Mime::Message const& message, ExamineOptions const& options);

/// One link, its host looked at: split, and flagged where a reader should look twice.
LinkReport describeLink(Quillmark::Uri const& uri);

/// Whether the address means something else to everybody who uses it: private, loopback, link-local.
bool isPrivateAddress(Quillmark::IPAddress const& address);

/// The address as plain data. @p address must not be null.
Address plainAddress(Quillmark::EmailAddress const& address);

/// The addresses of a header field, the members of its groups among them.
std::vector<Address> parseAddressList(std::string const& text);

/// The path of an envelope ("<a@b.example>", "<>"), or nothing when it is none.
std::optional<Address> parsePath(std::string const& text);

/// An exception for people: its detail where it has one.
std::string detailOf(Quillmark::Exception const& e);

}  // namespace QuillmarkTool
