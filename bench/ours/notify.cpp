// From SendRegistryChangeNotification in one process to OnRegistryChange in another.
#include <VQRegLib.h>

#include <memory>

#include "support/Notification.h"

namespace {

using bench::Notification;
using VQRegLib::CRegLib;

class ReportingHandler : public VQRegLib::CRegistryChangeHandler {
public:
    explicit ReportingHandler(const Notification::Action& report) : m_report(report) {}
    void OnRegistryChange() override { m_report(); }

private:
    const Notification::Action& m_report;
};

void watch(const std::string& file, const Notification::Action& report,
           const Notification::Action& wait) {
    CRegLib session(file.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    ReportingHandler handler(report);
    session.SetRegistryChangeHandler(&handler);
    wait();
    session.ClrRegistryChangeHandler(&handler);
}

Notification::Action sender(const std::string& file) {
    const auto session =
        std::make_shared<CRegLib>(file.c_str(), nullptr, CRegLib::eLocationDefault, nullptr);
    return [session] { session->SendRegistryChangeNotification(); };
}

}  // namespace

int main(int count, char** arguments) {
    return bench::notify(count, arguments, {watch, sender});
}
