#pragma once

// Which dialog may be shown: one at a time, in whatever order callers ask. The rules, as a value.
class DialogDesk
{
public:
    enum class Dialog { None, Privacy, LocationRequest };
    enum class Verdict {
        Show,
        Busy,        // another dialog is open
        Withdraw,    // close the open location request
        NothingToDo, // a withdrawal, and no location request is open
        UnknownType, // of a location request
        Leaving,     // the program was told to exit
    };
    static constexpr int WithdrawType = 2; // of a location request

    Verdict privacyAsked() const;
    Verdict locationAsked(int type) const;

    void opened(Dialog dialog) { m_open = dialog; }
    void closed() { m_open = Dialog::None; }
    void leave() { m_leaving = true; }
    Dialog open() const { return m_open; }

private:
    Verdict free() const;

    Dialog m_open = Dialog::None;
    bool m_leaving = false;
};
