#pragma once
// A loosely typed value, as list input reads it and as print items and
// number texts take it: nothing, a whole number, a single, a double, a text.
#include <cstdint>
#include <string>

namespace kestro {

struct Value {
    enum class Kind { Empty, Integer, Single, Double, Text };

    Kind kind = Kind::Empty;
    int64_t integer = 0;
    double number = 0;  // the Single or Double value
    std::string text;

    static Value ofInteger(int64_t v) { Value r; r.kind = Kind::Integer; r.integer = v; return r; }
    static Value ofSingle(float v) { Value r; r.kind = Kind::Single; r.number = v; return r; }
    static Value ofDouble(double v) { Value r; r.kind = Kind::Double; r.number = v; return r; }
    static Value ofText(std::string v) { Value r; r.kind = Kind::Text; r.text = std::move(v); return r; }

    bool isEmpty() const { return kind == Kind::Empty; }
    bool isText() const { return kind == Kind::Text; }
    bool isNumber() const { return kind == Kind::Integer || kind == Kind::Single || kind == Kind::Double; }
    // The value as a number: a text by the leading-number rule, nothing as 0.
    double toNumber() const;
};

}  // namespace kestro
