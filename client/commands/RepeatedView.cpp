// SPDX-License-Identifier: Apache-2.0
#include "client/commands/RepeatedView.h"

#include "client/screen/Format.h"
#include "client/screen/Terminal.h"
#include "client/views/Answers.h"

#include <utility>

namespace meridal {

void RepeatedView::start()
{
    if (!question_.json && question_.refreshes == 0) {
        screen_ = LiveScreen::open(session_, [this] { paint(); });
    }
    ask();
}

void RepeatedView::ask()
{
    question_.ask([this](Value answer) {
        next_ = session_.loop().after(question_.interval, [this] { ask(); });
        answer_ = std::move(answer);
        show(answer_);
    });
}

void RepeatedView::show(const Value& answer)
{
    ++shown_;
    if (screen_) {
        paint();
    } else if (question_.json) {
        session_.print(answerLine(answer));
    } else if (shown_ == 1 || session_.print("\n")) {
        session_.print(question_.lines(answer, terminalColumns().value_or(0)));
    }
    const Value* list = find(answer, question_.list);
    const bool isOver = !screen_ && list && list->empty();
    if (isOver || shown_ == question_.refreshes) {
        session_.finish(exitStatus::success);
    }
}

void RepeatedView::paint()
{
    if (!answer_.is_null()) {
        screen_->show(question_.lines(answer_, screen_->columns()));
    }
}

} // namespace meridal
