// Protects programs on this machine from pages in its browsers.
#ifndef MONITOR_HOST_HEADER_H
#define MONITOR_HOST_HEADER_H

#include <httplib.h>

// False if the Host header is there and has neither "localhost" nor a loopback address. A page from
// elsewhere can give its own name the address 127.0.0.1, and then read what is answered there; but
// its browser sends that name.
bool names_this_machine(const httplib::Request& request);

#endif
