// A guess at what a misspelt word should have been.
#ifndef MONITOR_NEAREST_H
#define MONITOR_NEAREST_H

#include <string>
#include <string_view>
#include <vector>

// The candidate with the fewest edits to `word`, or an empty text if even that one differs in more
// than a third of its letters.
std::string_view nearest(std::string_view word, const std::vector<std::string_view>& candidates);

// ", did you mean "period"?" or nothing: the end of a message about an unknown word.
std::string did_you_mean(std::string_view word, const std::vector<std::string_view>& candidates);

#endif
