#pragma once

#include <QByteArray>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

// The boxes inside a box read into memory, for the parts of a damaged "moov" that survive.
struct ChildBox
{
    int begin; // its header
    int end;
    uint32_t type;

    int Payload() const { return begin + 8; }
};

// The boxes in [begin, end) of `bytes`, as far as their sizes hold.
std::vector<ChildBox> ChildrenOf(const QByteArray &bytes, int begin, int end);
const ChildBox *FindChild(const std::vector<ChildBox> &children, uint32_t type);
// The box reached from inside `box` through `path` (types, outermost first), none if a step is
// missing; the boxes beside it in *siblings.
std::optional<ChildBox> Descend(const QByteArray &bytes, const ChildBox &box, std::initializer_list<uint32_t> path,
                                std::vector<ChildBox> *siblings = nullptr);
