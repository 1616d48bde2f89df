#pragma once

#include <cstdio>
#include <string>
#include <type_traits>

namespace Kiv {

namespace detail {
template <class T>
auto formatArg(T const& v) {
   if constexpr (std::is_base_of_v<std::string, T>) {
      return static_cast<std::string const&>(v).c_str();
   } else if constexpr (std::is_array_v<T>) {
      return static_cast<std::decay_t<T const>>(v);
   } else {
      return v;
   }
}
}  // namespace detail

// printf-style formatting into a string; std::string arguments stand for %s. Formatted once
// on the stack; only a text too long for it is formatted again into its own storage.
template <class... A>
std::string format(char const* fmt, A const&... args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
   char buf[256];
   int n = std::snprintf(buf, sizeof buf, fmt, detail::formatArg(args)...);
   if (n <= 0) {
      return std::string();
   }
   if (static_cast<std::size_t>(n) < sizeof buf) {
      return std::string(buf, static_cast<std::size_t>(n));
   }
   std::string out(static_cast<std::size_t>(n), '\0');
   std::snprintf(out.data(), out.size() + 1, fmt, detail::formatArg(args)...);
#pragma GCC diagnostic pop
   return out;
}

}  // namespace Kiv
