#include "dialogdesk.h"

DialogDesk::Verdict DialogDesk::privacyAsked() const
{
    return free();
}

DialogDesk::Verdict DialogDesk::locationAsked(int type) const
{
    switch (type) {
    case 0:
    case 1:
        return free();
    case WithdrawType:
        return m_open == Dialog::LocationRequest ? Verdict::Withdraw : Verdict::NothingToDo;
    default:
        return Verdict::UnknownType;
    }
}

DialogDesk::Verdict DialogDesk::free() const
{
    if (m_leaving)
        return Verdict::Leaving;
    return m_open == Dialog::None ? Verdict::Show : Verdict::Busy;
}
