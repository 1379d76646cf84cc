#pragma once

#include "catalogue/LibPartId.hpp"

#include "KLRoot/Guid.hpp"
#include "KLRoot/KLExport.hpp"

namespace LM {

// A host's view of the type tree: the tree is walked level by level and handed to the exporter one
// node at a time, each level in the order of the exporter's comparison.
class LM_EXPORT TypeHierarchyExporter {
public:
    // What ExportNode returns to steer the walk.
    static constexpr int GoOn = 0;
    static constexpr int SkipChildren = 1;
    static constexpr int Stop = 2;

    struct Node {
        // True for a node no part stands for.
        bool isTemplate = true;
        bool isPlaceable = false;
        // The node's id and the part's name; the name is empty for a node without a part.
        LibPartId libPartId;
    };

    // Orders the nodes of one level: below 0, 0 or above 0.
    class LM_EXPORT ICompare {
    public:
        virtual int CmpFunct(const Node& a, const Node& b) const = 0;
        virtual ~ICompare();
    };

    // Templates that are not placeable, then placeable templates, then ordinary parts; each by name.
    class LM_EXPORT DefCompare : public ICompare {
    public:
        int CmpFunct(const Node& a, const Node& b) const override;
    };

    // `*childContext` is 0 on entry; what is left there is the context of the node's children.
    virtual int ExportNode(int context, const Node& node, int* childContext) = 0;
    virtual int GetRootContext() = 0;
    // Null in both guids: the root.
    virtual KL::UnID GetStartingNodeUnID() { return KL::NULLUnID; }
    virtual bool ShouldExportRecursively() { return true; }
    // Null keeps the tree's own order.
    virtual const ICompare* GetCompare() { return nullptr; }
    virtual ~TypeHierarchyExporter();
};

} // namespace LM
