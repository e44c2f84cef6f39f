// unistr_model.h - scripts of edits that run on a UniStr and, beside it, on a model: a std::u16string, the
// capacity by the growth rules, and what is known of the code-page copy. The model shares no code with
// UniStr. The random tests and the fuzzer run the same scripts.
#ifndef VORN_TESTS_TEXT_UNISTR_MODEL_H
#define VORN_TESTS_TEXT_UNISTR_MODEL_H

#include <vorn/unistr.hpp>

#include <cstdint>
#include <string>
#include <vector>

namespace unistr_test {

// Where a script's decisions come from: bytes, read to their end; 0 from then on.
class ScriptSource {
public:
    ScriptSource(const uint8_t* bytes, size_t size) : bytes_(bytes), size_(size) {}

    bool AtEnd() const { return size_ == 0; }
    uint32_t Byte()
    {
        if (size_ == 0) return 0;
        --size_;
        return *bytes_++;
    }
    // A number in [0, limit).
    uint32_t Below(uint32_t limit)
    {
        uint32_t number = Byte();
        if (limit > 256) number = number << 8 | Byte();
        return number % limit;
    }

private:
    const uint8_t* bytes_;
    size_t size_;
};

// Two strings and their models. Each step edits one of them, with a source that may be the other string, the
// string itself, a part of its own buffer or a text of its own.
class EditScript {
public:
    // Runs the script to its end. Returns an empty text, or what differed after which step.
    std::string Run(ScriptSource source);
    uint64_t Steps() const { return steps_; }

private:
    struct Model {
        std::u16string text;
        uint64_t capacity = 32;
    };

    // Units for an edit: where they are, for the string, and what they are, for the model.
    struct Units {
        const wchar_t* data;
        std::u16string value;
    };

    bool Step(ScriptSource& source);
    Units PickUnits(ScriptSource& source, size_t target);
    uint32_t PickPosition(ScriptSource& source, size_t length);
    template <typename Edit, typename Expect>
    void Apply(size_t target, bool throws, Edit edit, Expect expect);
    void Check(size_t target);
    void Fail(const std::string& what);

    vorn::UniStr strings_[2];
    Model models_[2];
    std::vector<wchar_t> scratch_;
    std::string operation_;
    std::string failure_;
    uint64_t steps_ = 0;
};

}  // namespace unistr_test

#endif
