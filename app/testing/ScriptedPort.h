#pragma once

// What the scripted device doubles share: initialize() is counted and answers
// initializeResult; each servicePort() call plays the next scripted step.

#include <deque>
#include <functional>
#include <utility>

namespace fpt::testing {

template <class Base, class Self> class ScriptedPort : public Base {
public:
    using Base::Base;

    bool initialize() override {
        ++initializeCalls;
        return initializeResult;
    }
    bool servicePort() override {
        ++serviceCalls;
        if (!m_steps.empty()) {
            auto step = std::move(m_steps.front());
            m_steps.pop_front();
            step(static_cast<Self&>(*this));
        }
        return true;
    }
    Self& step(std::function<void(Self&)> fn) {
        m_steps.push_back(std::move(fn));
        return static_cast<Self&>(*this);
    }

    bool initializeResult = true;
    int initializeCalls = 0;
    int serviceCalls = 0;

private:
    std::deque<std::function<void(Self&)>> m_steps;
};

} // namespace fpt::testing
