#pragma once

// Log lines and entry traces. The text of a line is built only when Hv::SimpleLogger::isEnabled(),
// and handed to log4cplus with the caller's file, line and function signature.
//
//   HV_TRACE(channel, this->name());     // [this = 0x...] -> (channel = tray, this->name() = x)
//   HV_TRACE_FREE();                     // [] -> ()
//   HV_LOG_WARN("Cannot parse buffer as channel message: " << text);

#include "HvSimpleLogger.h"

#include <log4cplus/loggingmacros.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/tstring.h>
#include <log4cplus/streams.h>

#include <cstddef>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Hv::Log {

template <typename T> struct IsSmartPointer : std::false_type {};
template <typename T> struct IsSmartPointer<std::shared_ptr<T>> : std::true_type {};
template <typename T, typename D> struct IsSmartPointer<std::unique_ptr<T, D>> : std::true_type {};


template <typename T>
concept StringLike = std::is_convertible_v<const T&, std::string_view>;

template <typename T>
concept Pointer = std::is_pointer_v<T> && !StringLike<T>;

template <typename T>
concept SharedLike = requires(const T& p) {
    { p.get() } -> std::convertible_to<const volatile void*>;
    p.use_count();
};

#ifdef __OBJC__
// Objective-C objects and classes; under ARC they reach an address only through a bridged cast.
template <typename T>
concept ObjectiveCObject = !std::is_same_v<T, std::nullptr_t> && std::is_convertible_v<T, id>;
#endif

template <typename T>
concept Streamable = requires(log4cplus::tostream& os, const T& v) { os << v; };

template <typename T>
concept StringRange = !StringLike<T> && requires(const T& r) {
    { *std::begin(r) } -> std::convertible_to<std::string_view>;
    std::end(r);
};

// Narrow text into the log stream, widened character by character in a wide build.
inline void writeText(log4cplus::tostream& os, std::string_view text)
{
#ifdef UNICODE
    for (char c : text)
        os << static_cast<log4cplus::tchar>(static_cast<unsigned char>(c));
#else
    os.write(text.data(), static_cast<std::streamsize>(text.size()));
#endif
}

// The text of one log line, built in log4cplus's string stream.
class Line {
public:
    log4cplus::tostream& stream() { return m_text; }
    log4cplus::tstring str() const { return m_text.str(); }

    // Friends of Line: argument-dependent lookup finds them from any namespace, where a global operator<< can be hidden.

    // Narrow text: widened character by character into a wide stream, written as it is into a narrow one.
    template <StringLike T>
    friend Line& operator<<(Line& line, const T& text)
    {
#ifdef UNICODE
        writeText(line.m_text, std::string_view(text));
#else
        line.m_text << text;
#endif
        return line;
    }

    // Any other value by its own operator<<, found with the value's type.
    template <typename T>
        requires(!StringLike<T>)
    friend Line& operator<<(Line& line, const T& value)
    {
        line.m_text << value;
        return line;
    }

private:
    log4cplus::tostringstream m_text;
};

// Writes one traced value the way every trace line prints it: pointers and shared pointers
// as addresses, text as it is, lists of markers as [a, b], the rest by its own operator<<.
template <typename T>
void writeValue(log4cplus::tostream& os, const T& value)
{
#ifdef __OBJC__
    if constexpr (ObjectiveCObject<T>) {
        os << (__bridge const void*)value;
    } else
#endif
    if constexpr (StringLike<T>) {
        writeText(os, std::string_view(value));
    } else if constexpr (Pointer<T>) {
        os << static_cast<const void*>(value);
    } else if constexpr (std::is_same_v<T, std::nullptr_t>) {
        os << static_cast<const void*>(nullptr);
    } else if constexpr (SharedLike<T> && !Streamable<T>) {
        os << static_cast<const void*>(value.get());
    } else if constexpr (StringRange<T>) {
        os << LOG4CPLUS_TEXT("[");
        bool first = true;
        for (const auto& item : value) {
            if (!first)
                os << LOG4CPLUS_TEXT(", ");
            first = false;
            writeText(os, std::string_view(item));
        }
        os << LOG4CPLUS_TEXT("]");
    } else if constexpr (std::is_same_v<T, bool>) {
        os << static_cast<int>(value);
    } else if constexpr (std::is_same_v<T, unsigned char> || std::is_same_v<T, signed char>) {
        os << static_cast<int>(value);
    } else {
        os << value;
    }
}

template <typename T>
struct Named {
    const char* name;
    const T& value;
};

template <typename T>
Named<T> named(const char* name, const T& value)
{
    return {name, value};
}

inline void writeArguments(log4cplus::tostream&) {}

template <typename First, typename... Rest>
void writeArguments(log4cplus::tostream& os, const Named<First>& first, const Rest&... rest)
{
    writeText(os, first.name);
    os << LOG4CPLUS_TEXT(" = ");
    writeValue(os, first.value);
    ((os << LOG4CPLUS_TEXT(", "), writeText(os, rest.name), os << LOG4CPLUS_TEXT(" = "),
      writeValue(os, rest.value)),
     ...);
}

// Longest text of one line: values that come from outside (a peer's channel, say) cannot make a
// line big.
inline constexpr std::size_t MAX_LINE_LENGTH = 7 * 1024;

inline log4cplus::tstring bounded(log4cplus::tstring text)
{
    if (text.size() > MAX_LINE_LENGTH) {
        const std::size_t size = text.size();
        text.resize(MAX_LINE_LENGTH);
        text += LOG4CPLUS_TEXT("... (");
        for (char digit : std::to_string(size))
            text += static_cast<log4cplus::tchar>(digit);
        text += LOG4CPLUS_TEXT(" characters in all)");
    }
    return text;
}

} // namespace Hv::Log

// HV_FOR_EACH(m, a, b, c) expands to m(a), m(b), m(c).
#define HV_PARENS ()
#define HV_EXPAND(...) HV_EXPAND3(HV_EXPAND3(HV_EXPAND3(__VA_ARGS__)))
#define HV_EXPAND3(...) HV_EXPAND2(HV_EXPAND2(HV_EXPAND2(__VA_ARGS__)))
#define HV_EXPAND2(...) HV_EXPAND1(HV_EXPAND1(HV_EXPAND1(__VA_ARGS__)))
#define HV_EXPAND1(...) __VA_ARGS__
#define HV_FOR_EACH(macro, ...) __VA_OPT__(HV_EXPAND(HV_FOR_EACH_HELPER(macro, __VA_ARGS__)))
#define HV_FOR_EACH_HELPER(macro, a1, ...) macro(a1) __VA_OPT__(, HV_FOR_EACH_AGAIN HV_PARENS(macro, __VA_ARGS__))
#define HV_FOR_EACH_AGAIN() HV_FOR_EACH_HELPER

#define HV_TRACE_NAMED(x) ::Hv::Log::named(#x, (x))

// The one place where a line is built and handed to log4cplus.
#define HV_LOG_AT(level, ...)                                                                          \
    do {                                                                                               \
        if (::Hv::SimpleLogger::isEnabled()) {                                                         \
            ::log4cplus::Logger hvLogger_ = ::Hv::SimpleLogger::logger();                              \
            if (hvLogger_.isEnabledFor(level)) {                                                       \
                ::Hv::Log::Line hvText_;                                                               \
                hvText_ << __VA_ARGS__;                                                                \
                hvLogger_.forcedLog(level, ::Hv::Log::bounded(hvText_.str()), __FILE__, __LINE__, LOG4CPLUS_MACRO_FUNCTION()); \
            }                                                                                          \
        }                                                                                              \
    } while (false)

#define HV_LOG_TRACE(...) HV_LOG_AT(::log4cplus::TRACE_LOG_LEVEL, __VA_ARGS__)
#define HV_LOG_DEBUG(...) HV_LOG_AT(::log4cplus::DEBUG_LOG_LEVEL, __VA_ARGS__)
#define HV_LOG_INFO(...) HV_LOG_AT(::log4cplus::INFO_LOG_LEVEL, __VA_ARGS__)
#define HV_LOG_WARN(...) HV_LOG_AT(::log4cplus::WARN_LOG_LEVEL, __VA_ARGS__)
#define HV_LOG_ERROR(...) HV_LOG_AT(::log4cplus::ERROR_LOG_LEVEL, __VA_ARGS__)
#define HV_LOG_FATAL(...) HV_LOG_AT(::log4cplus::FATAL_LOG_LEVEL, __VA_ARGS__)

#define HV_TRACE_WITH(prefix, ...)                                                                     \
    HV_LOG_TRACE(prefix << LOG4CPLUS_TEXT("] -> (");                                                   \
                 ::Hv::Log::writeArguments(hvText_.stream() __VA_OPT__(, HV_FOR_EACH(HV_TRACE_NAMED, __VA_ARGS__))); \
                 hvText_ << LOG4CPLUS_TEXT(")"))

// Entry trace of a member function: [this = 0x...] -> (name = value, ...)
#define HV_TRACE(...) HV_TRACE_WITH(LOG4CPLUS_TEXT("[this = ") << static_cast<const void*>(this) __VA_OPT__(, ) __VA_ARGS__)
// Entry trace of a user-interface method (Objective-C): [self = 0x...] -> (...)
#ifdef __OBJC__
#define HV_TRACE_SELF(...) HV_TRACE_WITH(LOG4CPLUS_TEXT("[self = ") << (__bridge const void*)self __VA_OPT__(, ) __VA_ARGS__)
#endif
// Entry trace of a free function or a static member: [] -> (...)
#define HV_TRACE_FREE(...) HV_TRACE_WITH(LOG4CPLUS_TEXT("[") __VA_OPT__(, ) __VA_ARGS__)
