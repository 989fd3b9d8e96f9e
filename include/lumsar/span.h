// std::span, or the little of it that these headers need where the standard library lacks it.
#pragma once

#if __cplusplus >= 202002L

#include <span>

namespace lumsar {

template <class T>
using Span = std::span<T>;

}  // namespace lumsar

#else

#include <cstddef>
#include <type_traits>
#include <utility>

namespace lumsar {

template <class T>
class Span {
 public:
  constexpr Span() = default;
  constexpr Span(T* data, std::size_t size) : m_data(data), m_size(size) {}
  // Of a container such as std::vector, or of a Span of what is not const.
  template <class Container, class = std::enable_if_t<std::is_convertible_v<
                                 decltype(std::declval<Container&>().data()), T*> > >
  constexpr Span(Container& container) : m_data(container.data()), m_size(container.size()) {}
  template <class Container, class = std::enable_if_t<std::is_convertible_v<
                                 decltype(std::declval<const Container&>().data()), T*> > >
  constexpr Span(const Container& container) : m_data(container.data()), m_size(container.size()) {}

  constexpr T* data() const { return m_data; }
  constexpr std::size_t size() const { return m_size; }
  constexpr bool empty() const { return m_size == 0; }
  constexpr T* begin() const { return m_data; }
  constexpr T* end() const { return m_data + m_size; }
  constexpr T& operator[](std::size_t index) const { return m_data[index]; }
  constexpr Span first(std::size_t size) const { return {m_data, size}; }
  constexpr Span subspan(std::size_t begin) const { return {m_data + begin, m_size - begin}; }

 private:
  T* m_data = nullptr;
  std::size_t m_size = 0;
};

}  // namespace lumsar

#endif
