// fmt, compiled once for all programs: Debian has it for the host only, and as a header each source would compile all
// of it anew. Below the functions, which are in the header, stand the templates that the sources leave to the library.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template auto thousands_sep_impl<char>(locale_ref) -> thousands_sep_result<char>;
template auto thousands_sep_impl<wchar_t>(locale_ref) -> thousands_sep_result<wchar_t>;
template auto decimal_point_impl(locale_ref) -> char;
template auto decimal_point_impl(locale_ref) -> wchar_t;
template auto locale_ref::get<std::locale>() const -> std::locale;
template auto dragonbox::to_decimal(double) noexcept -> dragonbox::decimal_fp<double>;

}  // namespace detail
FMT_END_NAMESPACE
