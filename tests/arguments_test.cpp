// Null pointers: every export refuses each of its pointers when it is null, whatever else is wrong,
// and touches nothing.

#include <set>
#include <type_traits>

#include "support/test.h"

namespace {

/// What the pointers point at: zeros, which are bad sizes and no state of anything.
alignas(64) uint8_t memory[1 << 16];

enum class Given { Memory, Null, PointerToNull };

template <class T>
T argument(Given given) {
    if constexpr (!std::is_pointer_v<T>)
        return T{};
    else if (given == Given::Null)
        return nullptr;
    else if constexpr (std::is_pointer_v<std::remove_pointer_t<T>>) {
        using Inner = std::remove_pointer_t<T>;
        static Inner nulls[2];
        static Inner pointers[2];
        pointers[0] = pointers[1] = reinterpret_cast<Inner>(memory);
        return given == Given::PointerToNull ? nulls : pointers;
    } else
        return reinterpret_cast<T>(memory);
}

/// What may be null where there is nothing to be read or no room, by function and argument.
const std::set<std::tuple<std::string, size_t, Given>> allowed = {
    {"veksAdler32_8u", 0, Given::Null},
    {"veksDecodeLZ4Dict_8u", 5, Given::Null},
    {"veksEncodeLZ4Dict_8u", 6, Given::Null},
    {"veksEncodeLZ4DictSafe_8u", 6, Given::Null},
    {"veksEncodeLZ4HC_8u", 6, Given::Null},
    {"veksEncodeLZ4HCDictLimit_8u", 6, Given::Null},
    {"veksEncodeLZSS_8u", 0, Given::PointerToNull},
    {"veksEncodeLZSS_8u", 2, Given::PointerToNull},
    {"veksDecodeLZSS_8u", 0, Given::PointerToNull},
};

void expectNullsRefused(const char*, const VekLibraryVersion* (*)()) {}
template <class... Parameters>
void expectNullsRefused(const std::string& name, VekStatus (*function)(Parameters...)) {
    const auto callWith = [&]<size_t... i>(size_t at, Given given, std::index_sequence<i...>) {
        return function(argument<Parameters>(i == at ? given : Given::Memory)...);
    };
    const auto expectRefused = [&](size_t at, Given given) {
        if (allowed.contains({name, at, given})) return;
        SCOPED_TRACE(name + ", argument " + std::to_string(at));
        EXPECT_EQ(callWith(at, given, std::index_sequence_for<Parameters...>()),
                  vekStatusNullPointer);
        EXPECT_TRUE(
            std::all_of(std::begin(memory), std::end(memory), [](int b) { return b == 0; }));
    };
    size_t at = 0;
    const auto check = [&]<class T>(std::type_identity<T>) {
        if (std::is_pointer_v<T>) expectRefused(at, Given::Null);
        if (std::is_pointer_v<std::remove_pointer_t<T>>) expectRefused(at, Given::PointerToNull);
        ++at;
    };
    (check(std::type_identity<Parameters>()), ...);
}

TEST(Arguments, NullsAreRefused) {
#define EXPORT(name) expectNullsRefused(#name, name);
#include "exports.inc"
}

}  // namespace
