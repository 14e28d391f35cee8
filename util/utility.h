/// @file utility.h
/// In-place string helpers used by the HEX record parser.
///
/// The three trimming functions take a set of characters to strip; strRemove
/// takes a whole substring to delete. None of them prints anything.
#ifndef HEXBLOCKS_UTILITY_H
#define HEXBLOCKS_UTILITY_H

#include <string>

/// Erases from the front of str every character that is in the set toRemove,
/// up to the first one that is not; a string made only of such characters
/// becomes empty.
/// @return str.
inline std::string& leftTrim(std::string& str, const std::string& toRemove)
{
    str.erase(0, str.find_first_not_of(toRemove));
    return str;
}

/// Erases everything after the last character of str that is not in the set
/// toRemove; a string made only of such characters becomes empty.
/// @return str.
inline std::string& rightTrim(std::string& str, const std::string& toRemove)
{
    const std::string::size_type lastKept = str.find_last_not_of(toRemove);
    str.erase(lastKept == std::string::npos ? 0 : lastKept + 1);
    return str;
}

/// leftTrim, then rightTrim, with the same set.
/// @return str.
inline std::string& strTrim(std::string& str, const std::string& toRemove)
{
    return rightTrim(leftTrim(str, toRemove), toRemove);
}

/// Deletes every occurrence of the substring toRemove from str. Each search
/// starts again at the front, so occurrences that a deletion brings together
/// are removed too ("aabb" minus "ab" is ""). An empty toRemove deletes
/// nothing: an empty pattern would otherwise match at position 0 for ever.
/// @return the number of deletions.
inline int strRemove(std::string& str, const std::string& toRemove)
{
    if (toRemove.empty())
        return 0;
    int removed = 0;
    for (std::string::size_type pos = str.find(toRemove); pos != std::string::npos;
         pos = str.find(toRemove)) {
        str.erase(pos, toRemove.size());
        ++removed;
    }
    return removed;
}

#endif // HEXBLOCKS_UTILITY_H
