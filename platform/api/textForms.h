#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Tavro/values.h"

// Text forms that the units of this library share.
namespace Tavro {

// `text` between single quotes, with control bytes as \xHH so that a message stays on one line.
std::string quoteForMessage(std::string_view text);

// The message about a code that is not in the type table.
std::string noSuchType(int code);

// Appends `text` between double quotes, with \" and \\ for those two characters.
void appendQuoted(std::string& out, std::string_view text);

// Reads an address of the given family into `bytes`. False when `text` is none; `bytes` is then unspecified.
bool readAddress(std::string_view text, AddressFamily family, unsigned char* bytes);

// The empty text is no address and no prefix; nullopt when the text is neither that nor a proper form.
std::optional<IpGenAddr> parseGenAddr(std::string_view text);
std::optional<IpGenPrefix> parseGenPrefix(std::string_view text);

// Appends nothing for a family that is no family.
void appendAddress(std::string& out, unsigned char family, const unsigned char* bytes);
void appendPrefix(std::string& out, const IpGenPrefixReference& prefix);

}  // namespace Tavro
