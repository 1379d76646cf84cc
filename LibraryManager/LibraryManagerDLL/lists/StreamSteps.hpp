#pragma once

namespace LM {

// Fields of a stored record read or written in order, each only while all before it succeeded.
class StreamSteps {
public:
    template <typename Step>
    StreamSteps& Then(Step step) {
        if (result == 0)
            result = step();
        return *this;
    }
    // Runs the step only when `condition` holds.
    template <typename Step>
    StreamSteps& ThenIf(bool condition, Step step) {
        return condition ? Then(step) : *this;
    }
    int Result() const { return result; }

private:
    int result = 0;
};

} // namespace LM
