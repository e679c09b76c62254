#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <utility>

namespace Hv::Util {

// A process-wide object made by its default constructor on first use and destroyed at exit.
// The first call is expected on the main thread during start-up; later calls only copy a pointer.
template <typename T>
class Singleton {
public:
    using Shared = boost::shared_ptr<T>;

    static Shared shared()
    {
        static Shared instance;
        if (!instance)
            instance = boost::make_shared<T>();
        return instance;
    }
};

// A process-wide object whose constructor needs arguments: the first create() makes it, later
// calls return that object and ignore their arguments.
template <typename T, typename... Args>
class InitableSingleton {
public:
    using Shared = boost::shared_ptr<T>;

    static Shared create(Args... args)
    {
        if (!m_instance)
            m_instance = boost::make_shared<T>(std::forward<Args>(args)...);
        return m_instance;
    }

private:
    static Shared m_instance;
};

template <typename T, typename... Args>
typename InitableSingleton<T, Args...>::Shared InitableSingleton<T, Args...>::m_instance;

} // namespace Hv::Util
