// Pointer arguments are checked first: each one null in turn, the rest of
// the arguments as given, must give nkpStatusNullPointer. Give the scalars
// a bad value too, to show that the pointers come before them, and wrap a
// pointer that the function does not check in unchecked().
#pragma once

#include "nkpac.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace nkptest {

template <class T>
struct Unchecked {
    T p;
    operator T() const { return p; }
};
template <class T>
Unchecked<T*> unchecked(T* p) {
    return {p};
}

template <class T>
T null_if(T v, bool null) {
    if constexpr (std::is_pointer_v<T>) return null ? nullptr : v;
    return v;
}

template <class F, class Tuple, size_t... I>
nkpStatus call_with_null(F f, const Tuple& args, size_t which, std::index_sequence<I...>) {
    return f(null_if(std::get<I>(args), I == which)...);
}

template <class F, class... A>
void expect_each_pointer_required(const std::string& name, F f, A... args) {
    const std::tuple<A...> t(args...);
    size_t index = 0;
    for (bool is_pointer : {std::is_pointer_v<A>...}) {
        if (is_pointer)
            EXPECT_EQ(call_with_null(f, t, index, std::index_sequence_for<A...>{}), nkpStatusNullPointer)
                << name << ": argument " << index << " null";
        ++index;
    }
}

}  // namespace nkptest
