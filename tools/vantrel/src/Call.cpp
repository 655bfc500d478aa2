// vantrel call: one operation sent through the module's real facade, arguments from JSON.
#include <chrono>
#include <iostream>
#include <sstream>
#include <thread>

#include "kelva/actors/Session.h"
#include "vantrel/tool/Bus.h"
#include "vantrel/catalog/Facade.h"
#include "vantrel/tool/Describe.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/JsonForm.h"
#include "vantrel/tool/Verbs.h"
#include "vantrel/tool/WireSample.h"

namespace vantrel::tool {

int call(const CallOptions& o) {
    const auto& op = requireOperation(o.operation);
    if (o.dispose && !op.dispose) throw InputError(op.qualifiedName() + " has no dispose flag");
    if (o.count < 1) throw InputError("--count must be at least 1");
    WireSample message(op);
    messageFromArguments(op, o.arguments, message.data());

    const auto& module = *catalog::findModule(op.module);
    catalog::FacadeRequest request;
    request.role = op.sender();
    request.creation = catalog::Creation::WriteOnly;
    Bus bus(o.domain);
    request.session = bus.session();
    request.name = o.name;
    auto facade = catalog::createFacade(module, request);
    message.setSendingActor(facade->actorInfo().actorId);
    std::this_thread::sleep_for(std::chrono::duration<double>(o.settle));

    const auto period = o.rate > 0 ? std::chrono::duration<double>(1.0 / o.rate) : std::chrono::duration<double>(0);
    auto next = std::chrono::steady_clock::now();
    for (long i = 0; i < o.count && !interrupted(); ++i) {
        facade->send(op, message.data(), o.dispose);  // bounds were checked as the message was filled
        if (!o.quiet) {
            std::ostringstream text;
            op.print(text, message.data());
            std::cout << (o.dispose ? "disposed " : "sent ") << op.qualifiedName() << " " << text.str() << std::endl;
        }
        if (period.count() > 0 && i + 1 < o.count) {
            next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
            std::this_thread::sleep_until(next);
        }
    }
    facade->invalidate();  // the writer lingers until readers have acknowledged
    return 0;
}

}  // namespace vantrel::tool
