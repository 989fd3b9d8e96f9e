// The formatting library's own code, compiled here once: programs need no shared library for it and
// including base/text/format.h stays cheap. Numbers are written without a locale.
#define FMT_STATIC_THOUSANDS_SEPARATOR ','

#include "base/text/format.h"

#include <fmt/format-inl.h>

#include <system_error>

FMT_BEGIN_NAMESPACE
namespace detail {
template auto dragonbox::to_decimal(float x) noexcept -> dragonbox::decimal_fp<float>;
template auto dragonbox::to_decimal(double x) noexcept -> dragonbox::decimal_fp<double>;
template auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl(locale_ref) -> char;
template void buffer<char>::append(const char*, const char*);
template void vformat_to(buffer<char>&, string_view, basic_format_args<FMT_BUFFER_CONTEXT(char)>,
                         locale_ref);
}  // namespace detail
FMT_END_NAMESPACE

namespace lumsar::base {

std::string systemError(int error) {
  return std::generic_category().message(error);
}

}  // namespace lumsar::base
