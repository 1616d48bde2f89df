#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Kiv {

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using I32 = std::int32_t;
using S64 = std::int64_t;

using String = std::string;
using Name = std::string;

// Attributes are identified by their name; the names are string literals, so views stay valid.
using AttrId = std::string_view;

}  // namespace Kiv

using Kiv::I32;
using Kiv::S32;
using Kiv::S64;
using Kiv::U16;
using Kiv::U32;
using Kiv::U64;
using Kiv::U8;
