// Uses something of each library of the installed package.

#include <cstdio>
#include <list>
#include <string>

#include <headers.h>

namespace {

// What can't be reached: nobody listens there.
bool isStoreReached(orv::horad::Horad::Register& registerHandler, velta::net::EventDispatcher& dispatcher,
                    orv::cfg::NotificationHandler& notifications) {
    registerHandler = [&](orv::cfg::IConfigHandler* handler) {
        notifications.registerConfigHandler(handler);
    };
    dispatcher.handleEvents(0);
    return notifications.initialized();
}

} // namespace

int main() {
    std::list<std::string> tables;
    orv::string::SeparatedStringtoList("TimePlans,WlanTimePlans", tables, ',');
    velta::net::EventDispatcher dispatcher;
    orv::cfg::NotificationHandler notifications("/nowhere/socket", dispatcher, "consumer", true, 1, 1, true,
                                                false);
    orv::horad::Horad::Register registerHandler;
    const bool reached = isStoreReached(registerHandler, dispatcher, notifications);
    const orv::horad::Horad horad(tables, 0, false, registerHandler);
    const orv::horad::TimePlanTime time("18:30:00");
    std::string text = "text  ";
    orv::string::rtrim(text);
    std::printf("%zu tables, hour %d, '%s', %s, %s\n", tables.size(), time.hour(), text.c_str(),
                reached ? "connected" : "not connected",
                velta::protocol::EResultCode(velta::protocol::code::noSuchRow).strerror().c_str());
    return 0;
}
