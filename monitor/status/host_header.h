// Protects programs on this machine from pages in its browsers.
#ifndef MONITOR_HOST_HEADER_H
#define MONITOR_HOST_HEADER_H

#include <httplib.h>

// False if there is a Host header with neither "localhost" nor a loopback address. The name of
// another site can be made to resolve to 127.0.0.1, and then the pages of that site could read the
// answers. But the browser sends the name of the site in this header.
bool names_this_machine(const httplib::Request& request);

#endif
