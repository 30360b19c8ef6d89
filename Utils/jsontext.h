#pragma once

#include <QByteArray>

namespace JsonText {

// The document without the members of objects whose value is an array or object and is replaced by a later member of
// the same key: the parser of Qt 5 takes the later one as well, but never frees the memory of the earlier. Spaces stand
// in their place. Text that is no JSON stays no JSON; what takes too long to be looked at, or has
// half a surrogate pair in such a key, becomes empty.
QByteArray withoutReplacedContainers(QByteArray json);

} // namespace JsonText
