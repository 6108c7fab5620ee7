#include "odbc-driver/Where.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <string_view>
#include <unordered_set>

#include "odbc-driver/CellText.h"

namespace xlsodbc {

namespace {

enum class Truth { kFalse, kTrue, kUnknown };

// A value as comparisons see it.
struct Scalar {
  bool null = true;
  bool numeric = false;        // a number, boolean or date cell, or a number literal
  bool readsAsNumber = false;  // numeric, or text that reads as a number (then in number)
  double number = 0;
  std::string text;  // for numbers their shortest text, for dates as CellText gives them
};

void SetReading(Scalar* s) {
  if (s->numeric) {
    s->readsAsNumber = true;
    return;
  }
  const std::string& t = s->text;
  auto res = std::from_chars(t.data(), t.data() + t.size(), s->number);
  s->readsAsNumber = !t.empty() && res.ec == std::errc() && res.ptr == t.data() + t.size();
}

Truth Compare(const Scalar& a, const Scalar& b, Condition::Op op) {
  if (a.null || b.null) return Truth::kUnknown;
  int cmp;
  if ((a.numeric || b.numeric) && a.readsAsNumber && b.readsAsNumber) {
    cmp = a.number < b.number ? -1 : (a.number > b.number ? 1 : 0);
  } else {
    cmp = a.text.compare(b.text);
  }
  bool r = false;
  switch (op) {
    case Condition::Op::kEq:
      r = cmp == 0;
      break;
    case Condition::Op::kNe:
      r = cmp != 0;
      break;
    case Condition::Op::kLt:
      r = cmp < 0;
      break;
    case Condition::Op::kLe:
      r = cmp <= 0;
      break;
    case Condition::Op::kGt:
      r = cmp > 0;
      break;
    case Condition::Op::kGe:
      r = cmp >= 0;
      break;
  }
  return r ? Truth::kTrue : Truth::kFalse;
}

}  // namespace

struct RowFilter::State {
  struct Slot {
    int column = -1;  // a table column, read once a row into cache[cacheIndex]; -1: constant
    int cacheIndex = -1;
    Scalar constant;
  };
  // An OR's equalities between one column and constants, answered by lookups. Which set a
  // cell is looked up in follows Compare: numbers meet numbers and text that reads as one,
  // other text meets text.
  struct EqualitySet {
    int slot = -1;                                    // the column
    std::unordered_set<double> numbers;               // number constants
    std::unordered_set<std::string> numberTexts;      // their text, for cells of other text
    std::unordered_set<double> numericTexts;          // text constants that read as numbers
    std::unordered_set<std::string> texts;            // every text constant
    std::unordered_set<std::string> nonNumericTexts;  // text constants that do not
    bool Has(const Scalar& v) const {
      if (v.numeric) {
        return numbers.count(v.number) || numericTexts.count(v.number) ||
               nonNumericTexts.count(v.text);
      }
      return (v.readsAsNumber && numbers.count(v.number) > 0) || texts.count(v.text) > 0;
    }
  };
  struct Node {
    Condition::Kind kind = Condition::Kind::kCompare;
    Condition::Op op = Condition::Op::kEq;
    int lhs = -1, rhs = -1;         // slots, kCompare and the null tests
    std::vector<int> children;      // nodes, kAnd, kOr, kNot
    std::vector<EqualitySet> sets;  // kOr only
  };

  std::vector<Slot> slots;
  std::vector<Node> nodes;
  int root = -1;
  std::map<int, int> cacheOfColumn;
  std::vector<Scalar> cache;
  std::vector<int> cachedRow;
  // Set by Matches for the rows it reads.
  const xls::Sheet* sheet = nullptr;
  int left = 0;
  bool date1904 = false;

  Error AddSlot(const Condition::Operand& op, const ResolveColumn& resolve,
                const BindParameter& bind, int* out) {
    Slot slot;
    if (op.isColumn) {
      Error e = resolve(op.column, &slot.column);
      if (!e.ok()) return e;
      auto it = cacheOfColumn.emplace(slot.column, static_cast<int>(cache.size())).first;
      if (it->second == static_cast<int>(cache.size())) {
        cache.emplace_back();
        cachedRow.push_back(-1);
      }
      slot.cacheIndex = it->second;
    } else {
      Value v = op.value;
      if (v.kind == Value::Kind::kParameter) {
        Error e = bind(op.value, &v);
        if (!e.ok()) return e;
      }
      Scalar& c = slot.constant;
      c.null = v.kind == Value::Kind::kNull;
      c.numeric = v.kind == Value::Kind::kNumber;
      c.number = v.number;
      c.text = c.numeric ? FormatNumber(v.number) : v.text;
      SetReading(&c);
    }
    slots.push_back(std::move(slot));
    *out = static_cast<int>(slots.size()) - 1;
    return Error();
  }

  // The column slot and constant of "column = constant" (either way round), if n is one.
  bool ColumnEqualsConstant(const Node& n, int* column, const Scalar** constant) const {
    if (n.kind != Condition::Kind::kCompare || n.op != Condition::Op::kEq) return false;
    const Slot& a = slots[static_cast<std::size_t>(n.lhs)];
    const Slot& b = slots[static_cast<std::size_t>(n.rhs)];
    if ((a.column >= 0) == (b.column >= 0)) return false;
    const Slot& c = a.column >= 0 ? b : a;
    if (c.constant.null) return false;
    *column = a.column >= 0 ? n.lhs : n.rhs;
    *constant = &c.constant;
    return true;
  }

  // Below this many equalities on one column an OR tests them one by one.
  static constexpr std::size_t kSetFrom = 4;

  void MakeSets(Node* n) {
    std::map<int, std::vector<std::size_t>> byColumn;  // table column -> positions in children
    for (std::size_t i = 0; i < n->children.size(); ++i) {
      int slot;
      const Scalar* constant;
      if (ColumnEqualsConstant(nodes[static_cast<std::size_t>(n->children[i])], &slot, &constant))
        byColumn[slots[static_cast<std::size_t>(slot)].column].push_back(i);
    }
    std::vector<bool> inSet(n->children.size(), false);
    for (const auto& [column, positions] : byColumn) {
      if (positions.size() < kSetFrom) continue;
      EqualitySet set;
      set.numbers.reserve(positions.size());
      set.texts.reserve(positions.size());
      for (std::size_t i : positions) {
        // Every position was found by ColumnEqualsConstant above, so it sets both.
        int slot = 0;
        const Scalar* k = nullptr;
        ColumnEqualsConstant(nodes[static_cast<std::size_t>(n->children[i])], &slot, &k);
        set.slot = slot;
        if (k->numeric) {
          set.numbers.insert(k->number);
        } else {
          set.texts.insert(k->text);
          if (k->readsAsNumber) {
            set.numericTexts.insert(k->number);
          } else {
            set.nonNumericTexts.insert(k->text);
          }
        }
        inSet[i] = true;
      }
      n->sets.push_back(std::move(set));
    }
    std::vector<int> rest;
    for (std::size_t i = 0; i < n->children.size(); ++i) {
      if (!inSet[i]) rest.push_back(n->children[i]);
    }
    n->children.swap(rest);
  }

  Error AddNode(const Condition& c, const ResolveColumn& resolve, const BindParameter& bind,
                int* out) {
    Node n;
    n.kind = c.kind;
    n.op = c.op;
    Error e;
    switch (c.kind) {
      case Condition::Kind::kAnd:
      case Condition::Kind::kOr:
      case Condition::Kind::kNot:
        for (const auto& term : c.terms) {
          int child;
          e = AddNode(*term, resolve, bind, &child);
          if (!e.ok()) return e;
          n.children.push_back(child);
        }
        if (c.kind == Condition::Kind::kOr) MakeSets(&n);
        break;
      case Condition::Kind::kCompare:
        e = AddSlot(c.rhs, resolve, bind, &n.rhs);
        if (!e.ok()) return e;
        [[fallthrough]];
      case Condition::Kind::kIsNull:
      case Condition::Kind::kIsNotNull:
        e = AddSlot(c.lhs, resolve, bind, &n.lhs);
        if (!e.ok()) return e;
        break;
    }
    nodes.push_back(std::move(n));
    *out = static_cast<int>(nodes.size()) - 1;
    return Error();
  }

  const Scalar& Get(int slotIndex, int row) {
    const Slot& slot = slots[static_cast<std::size_t>(slotIndex)];
    if (slot.column < 0) return slot.constant;
    const auto i = static_cast<std::size_t>(slot.cacheIndex);
    Scalar& s = cache[i];
    if (cachedRow[i] != row) {
      cachedRow[i] = row;
      const xls::Cell& cell = sheet->at(row, left + slot.column);
      s.null = !CellText(cell, date1904, &s.text);
      s.numeric = cell.type == xls::CellType::kNumber || cell.type == xls::CellType::kBoolean ||
                  cell.type == xls::CellType::kDateTime;
      s.number = cell.number;
      SetReading(&s);
    }
    return s;
  }

  Truth Test(int index, int row) {
    const Node& n = nodes[static_cast<std::size_t>(index)];
    switch (n.kind) {
      case Condition::Kind::kAnd:
      case Condition::Kind::kOr: {
        // Three-valued: one deciding term (false for AND, true for OR) settles the chain;
        // otherwise any unknown term leaves it unknown.
        const Truth decides = n.kind == Condition::Kind::kAnd ? Truth::kFalse : Truth::kTrue;
        Truth result = decides == Truth::kFalse ? Truth::kTrue : Truth::kFalse;
        for (const EqualitySet& set : n.sets) {
          const Scalar& v = Get(set.slot, row);
          if (v.null) {
            result = Truth::kUnknown;  // each of its terms is unknown
          } else if (set.Has(v)) {
            return Truth::kTrue;
          }
        }
        for (int child : n.children) {
          Truth t = Test(child, row);
          if (t == decides) return t;
          if (t == Truth::kUnknown) result = t;
        }
        return result;
      }
      case Condition::Kind::kNot: {
        Truth a = Test(n.children[0], row);
        return a == Truth::kUnknown ? a : (a == Truth::kTrue ? Truth::kFalse : Truth::kTrue);
      }
      case Condition::Kind::kIsNull:
      case Condition::Kind::kIsNotNull: {
        bool isNull = Get(n.lhs, row).null;
        return (isNull == (n.kind == Condition::Kind::kIsNull)) ? Truth::kTrue : Truth::kFalse;
      }
      case Condition::Kind::kCompare:
        break;
    }
    return Compare(Get(n.lhs, row), Get(n.rhs, row), n.op);
  }
};

RowFilter::RowFilter() : state_(std::make_unique<State>()) {}
RowFilter::~RowFilter() = default;
RowFilter::RowFilter(RowFilter&&) noexcept = default;
RowFilter& RowFilter::operator=(RowFilter&&) noexcept = default;

Error RowFilter::Compile(const Condition* where, const ResolveColumn& resolve,
                         const BindParameter& bind) {
  *state_ = State();
  if (!where) return Error();
  return state_->AddNode(*where, resolve, bind, &state_->root);
}

bool RowFilter::Matches(const xls::Sheet& sheet, int row, int left, bool date1904) {
  State& s = *state_;
  if (s.root < 0) return true;
  if (s.sheet != &sheet || s.left != left) std::fill(s.cachedRow.begin(), s.cachedRow.end(), -1);
  s.sheet = &sheet;
  s.left = left;
  s.date1904 = date1904;
  return s.Test(s.root, row) == Truth::kTrue;
}

}  // namespace xlsodbc
