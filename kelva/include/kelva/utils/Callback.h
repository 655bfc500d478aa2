#pragma once
// Type-erased callbacks of the callback maps: an application registers, per operation name, a list of
// `Base*` that are in fact `Wrapper<Interface, Args...>` holding a callable of exactly the operation's
// arguments. The receiver recovers the typed wrapper with a checked cast.
#include <functional>

#include "kelva/Export.h"

namespace kelva::utils::callback {

class KELVA_EXPORT Base {
public:
    virtual ~Base() = default;
};

template <class Interface, class... Args>
class Wrapper : public Base {
public:
    using Function = std::function<void(Args...)>;

    Wrapper() = default;
    explicit Wrapper(Function function) : m_function(std::move(function)) {}

    // An empty function raises std::bad_function_call, as std::function does.
    void operator()(Args... args) const { m_function(std::forward<Args>(args)...); }
    const Function& function() const { return m_function; }

    // The wrapper behind `base` if it has exactly this type, else null.
    static const Wrapper* from(const Base* base) { return dynamic_cast<const Wrapper*>(base); }

private:
    Function m_function;
};

}  // namespace kelva::utils::callback
