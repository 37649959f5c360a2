#include "CompanionService.h"

#include "PlatformWords.h"

#include <cassert>
#include <utility>

namespace keyferry {

std::shared_ptr<CompanionService> CompanionService::make(const CompanionServicePorts& ports, std::string baseURL,
                                                         std::string computerName) {
    return std::make_shared<CompanionService>(ConstructionKey{}, ports, std::move(baseURL), std::move(computerName));
}

CompanionService::CompanionService(ConstructionKey, const CompanionServicePorts& ports, std::string serviceURL,
                                   std::string nameOfThisComputer)
    : store(ports.defaults, ports.secrets), queue(ports.queue), mainThread(ports.mainThread), clock(ports.clock),
      http(ports.http), webSockets(ports.webSockets), accessibility(ports.accessibility),
      injector(ports.keyboard, ports.accessibility), baseURL(std::move(serviceURL)),
      // A host that reports no name is called by the platform's word for this computer.
      computerName(nameOfThisComputer.empty() ? std::string(thisComputerWord) : std::move(nameOfThisComputer)) {}

void CompanionService::start() {
    enqueue([](CompanionService& service) {
        service.stopped = false;
        if (service.store.isPaired()) {
            service.refreshPhonesNow(false);
            service.connectIfPermitted();
        } else {
            service.setState(CompanionConnectionState::unpaired);
        }
    });
}

void CompanionService::stop() {
    enqueue([](CompanionService& service) {
        service.stopped = true;
        service.cancelConnection();
    });
}

void CompanionService::resumeAfterAccessibilityPermission() {
    enqueue([](CompanionService& service) {
        if (service.store.isPaired()) {
            service.connectIfPermitted();
        } else {
            service.setState(CompanionConnectionState::unpaired);
        }
    });
}

void CompanionService::requestPairingCode() {
    enqueue([](CompanionService& service) { service.requestPairingCodeNow(); });
}

void CompanionService::refreshPhones() {
    enqueue([](CompanionService& service) { service.refreshPhonesNow(true); });
}

void CompanionService::removePhone(std::string pairingId) {
    enqueue([pairingId = std::move(pairingId)](CompanionService& service) { service.removePhoneNow(pairingId); });
}

// Work and reports hold the service weakly: once the application lets it go, nothing queued for it runs.
void CompanionService::enqueue(Work work) {
    queue.post([weakService = weak_from_this(), work = std::move(work)] {
        if (const auto service = weakService.lock()) {
            service->assertOnQueue();
            work(*service);
        }
    });
}

void CompanionService::dispatchMain(Work report) {
    mainThread.post([weakService = weak_from_this(), report = std::move(report)] {
        if (const auto service = weakService.lock()) {
            report(*service);
        }
    });
}

void CompanionService::setState(CompanionConnectionState newState) {
    assertOnQueue();
    if (newState == state) {
        return;
    }
    state = newState;
    dispatchMain([newState](CompanionService& service) {
        if (service.onStateChange) {
            service.onStateChange(newState);
        }
    });
}

void CompanionService::reportError(std::string text) {
    assertOnQueue();
    dispatchMain([text = std::move(text)](CompanionService& service) {
        if (service.onError) {
            service.onError(text);
        }
    });
}

void CompanionService::notify(std::function<void()> CompanionService::*callback) {
    assertOnQueue();
    dispatchMain([callback](CompanionService& service) {
        if (service.*callback) {
            (service.*callback)();
        }
    });
}

void CompanionService::assertOnQueue() const {
    assert(queue.isCurrent());
}

} // namespace keyferry
