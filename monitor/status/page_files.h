// The page for a browser, at "/", and its files.
#ifndef MONITOR_PAGE_FILES_H
#define MONITOR_PAGE_FILES_H

#include <httplib.h>

#include <string>

// Answers with the file of the page that has this path. False if there is none.
bool answer_with_page_file(const std::string& path, httplib::Response& response);

#endif
