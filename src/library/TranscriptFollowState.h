#pragma once

namespace kestil {

// Whether the transcript tab keeps a growing transcript in view. It follows
// the bottom until the user scrolls away; scrolling back to the bottom, or the
// jump control, resumes following.
struct TranscriptFollowState {
    bool isFollowing = true;
    bool isUserScrolling = false;
    bool isAtBottom = true;

    // After the text changed: scroll to the bottom anchor?
    bool shouldScrollToBottom() const { return isFollowing && !isUserScrolling; }

    // The user grabbed the scroll bar (or otherwise began a continuous scroll).
    void beginUserScroll() { isUserScrolling = true; }
    // The user let go, or made a single step (wheel, keys, a page click):
    // following resumes only where the scroll ended at the bottom.
    void endUserScroll(bool atBottom)
    {
        isUserScrolling = false;
        isAtBottom = atBottom;
        isFollowing = atBottom;
    }
    // The view moved for another reason (new text, a resize).
    void viewMoved(bool atBottom) { isAtBottom = atBottom; }
    // "Jump to active transcription".
    void resume()
    {
        isUserScrolling = false;
        isFollowing = true;
    }
};

} // namespace kestil
