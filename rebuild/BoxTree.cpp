#include "rebuild/BoxTree.h"

#include "rebuild/Bits.h"

#include <algorithm>

std::vector<ChildBox> ChildrenOf(const QByteArray &bytes, int begin, int end)
{
    std::vector<ChildBox> children;
    const auto *p = reinterpret_cast<const uint8_t *>(bytes.constData());
    end = std::min(end, int(bytes.size()));
    for (int at = begin; at >= 0 && at + 8 <= end;) {
        const uint32_t size = ReadU32(p + at);
        if (size < 8 || size > uint32_t(end - at))
            break;
        children.push_back({at, at + int(size), ReadU32(p + at + 4)});
        at += int(size);
    }
    return children;
}

const ChildBox *FindChild(const std::vector<ChildBox> &children, uint32_t type)
{
    for (const ChildBox &c : children)
        if (c.type == type)
            return &c;
    return nullptr;
}

std::optional<ChildBox> Descend(const QByteArray &bytes, const ChildBox &box, std::initializer_list<uint32_t> path,
                                std::vector<ChildBox> *siblings)
{
    ChildBox current = box;
    std::vector<ChildBox> children;
    for (const uint32_t type : path) {
        children = ChildrenOf(bytes, current.Payload(), current.end);
        const ChildBox *next = FindChild(children, type);
        if (!next)
            return std::nullopt;
        current = *next;
    }
    if (siblings)
        *siblings = children;
    return current;
}
