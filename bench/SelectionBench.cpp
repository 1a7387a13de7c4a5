// Set operations of selections against the same operations on a hash set of the same names,
// at the sizes of a large pick (100), a whole graph (1k) and a generated scene (10k).
//
// Each "ours" iteration clones the left selection and applies the operation, as an editor does
// to keep the original for undo; the reference copies its set the same way. The right operand
// shares half of its items with the left.

#include "BenchRatio.h"
#include "SnItemBasic.h"
#include "SnSelection.h"

#include <string>
#include <unordered_set>
#include <vector>

using namespace Vn;

namespace {
using Text = SnItemConvert<std::string>;
using NameSet = std::unordered_set<std::string>;

std::string nameOf(int i) {
    return "node" + std::to_string(i);
}

struct Inputs {
    RCShdPtr<SnSelection> left, right, unionOfBoth;
    NameSet leftSet, rightSet, unionSet;
    explicit Inputs(int n) {
        left = SnSelection::create();
        right = SnSelection::create();
        for (int i = 0; i < n; ++i) {
            left->append(Text::createItem(nameOf(i)));
            leftSet.insert(nameOf(i));
        }
        for (int i = n / 2; i < n / 2 + n; ++i) {
            right->append(Text::createItem(nameOf(i)));
            rightSet.insert(nameOf(i));
        }
        unionOfBoth = left->clone();
        unionOfBoth->unionWith(right);
        unionSet = leftSet;
        unionSet.insert(rightSet.begin(), rightSet.end());
    }
};

enum class Op { Union, Xor, Difference, Contains, SnapshotRestore };

void ours(benchmark::State& state, Op op, int n) {
    Inputs in(n);
    for (auto _ : state) {
        switch (op) {
        case Op::Union: {
            auto s = in.left->clone();
            s->unionWith(in.right);
            benchmark::DoNotOptimize(s->getSize());
            break;
        }
        case Op::Xor: {
            auto s = in.left->clone();
            s->xorWith(in.right);
            benchmark::DoNotOptimize(s->getSize());
            break;
        }
        case Op::Difference: {
            auto s = in.left->clone();
            s->differenceWith(in.right);
            benchmark::DoNotOptimize(s->getSize());
            break;
        }
        case Op::Contains:
            benchmark::DoNotOptimize(in.unionOfBoth->contains(in.right));
            break;
        case Op::SnapshotRestore: {
            auto restored = in.left->snapshot()->restore();
            benchmark::DoNotOptimize(restored->getSize());
            break;
        }
        }
    }
}

void reference(benchmark::State& state, Op op, int n) {
    Inputs in(n);
    for (auto _ : state) {
        switch (op) {
        case Op::Union: {
            NameSet s = in.leftSet;
            s.insert(in.rightSet.begin(), in.rightSet.end());
            benchmark::DoNotOptimize(s.size());
            break;
        }
        case Op::Xor: {
            NameSet s = in.leftSet;
            for (auto const& k : in.rightSet)
                if (!s.erase(k))
                    s.insert(k);
            benchmark::DoNotOptimize(s.size());
            break;
        }
        case Op::Difference: {
            NameSet s = in.leftSet;
            for (auto const& k : in.rightSet)
                s.erase(k);
            benchmark::DoNotOptimize(s.size());
            break;
        }
        case Op::Contains: {
            bool all = true;
            for (auto const& k : in.rightSet)
                all = all && in.unionSet.count(k);
            benchmark::DoNotOptimize(all);
            break;
        }
        case Op::SnapshotRestore: {
            // A frozen copy and a set rebuilt from it.
            std::vector<std::string> frozen(in.leftSet.begin(), in.leftSet.end());
            NameSet restored(frozen.begin(), frozen.end());
            benchmark::DoNotOptimize(restored.size());
            break;
        }
        }
    }
}
} // namespace

int main(int argc, char** argv) {
    struct Named {
        char const* name;
        Op op;
    };
    Named const ops[] = {{"union", Op::Union},
                         {"xor", Op::Xor},
                         {"difference", Op::Difference},
                         {"contains", Op::Contains},
                         {"snapshot_restore", Op::SnapshotRestore}};
    // The names outlive main's benchmarks: the ratio pairs point into them.
    static std::vector<std::string> names;
    names.reserve(3 * 5 * 3);
    std::vector<VnBench::RatioPair> pairs;
    for (int n : {100, 1000, 10000}) {
        for (auto const& o : ops) {
            std::string const suffix = std::string(o.name) + "/" + std::to_string(n);
            names.push_back(suffix);
            names.push_back("BM_Selection_" + suffix);
            names.push_back("BM_HashSet_" + suffix);
            auto const& oursName = names[names.size() - 2];
            auto const& refName = names.back();
            benchmark::RegisterBenchmark(oursName.c_str(), ours, o.op, n);
            benchmark::RegisterBenchmark(refName.c_str(), reference, o.op, n);
            pairs.push_back({names[names.size() - 3].c_str(), oursName.c_str(), refName.c_str()});
        }
    }
    return VnBench::runWithRatios(argc, argv, pairs);
}
