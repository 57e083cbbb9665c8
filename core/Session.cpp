#include "core/Session.h"

#include "core/runtime/RuntimeError.h"

namespace kestro {

Session::Session(Host& host) : host_(&host) {}

void Session::addToQueue(const std::string& shownName, const std::string& fullPath) {
    List1.push_back(shownName);
    List2.push_back(fullPath);
    host_->queueChanged();
}

void Session::clearQueue() {
    List1.clear();
    List2.clear();
    host_->queueChanged();
}

const std::string& Session::outputExtension() const {
    size_t index = 2 * static_cast<size_t>(boxes.SPO) + static_cast<size_t>(boxes.SPE);
    if (index >= outputExt.size()) raise(err::SubscriptOutOfRange);
    return outputExt[index];
}

}  // namespace kestro
