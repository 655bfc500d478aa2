#pragma once
// Type checks of an actor's components against what a caller asks for.
#include <memory>

#include "kelva/actors/Components.h"

namespace kelva::actors {

template <class S>
std::shared_ptr<S> checkSenderType(const std::shared_ptr<ISender>& sender) {
    return std::dynamic_pointer_cast<S>(sender);
}

template <class S>
bool checkTypeOfSender(const ISender* sender) {
    return dynamic_cast<const S*>(sender) != nullptr;
}

template <class O>
bool checkObserverType(const IObserver* observer) {
    return dynamic_cast<const O*>(observer) != nullptr;
}

}  // namespace kelva::actors
