#pragma once
#include "kelva/Export.h"
// What an actor carries: at most one sender (it publishes operations) and one observer (it receives them).

namespace kelva::actors {

class KELVA_EXPORT IComponent {
public:
    virtual ~IComponent() = default;
};

class ISender : public IComponent {};

class IObserver : public IComponent {};

}  // namespace kelva::actors
