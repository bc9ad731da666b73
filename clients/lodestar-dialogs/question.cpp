#include "question.h"

#include "displaytext.h"

using namespace Qt::StringLiterals;

QString Question::spoken() const
{
    QStringList parts{headline};
    for (const Field &field : fields)
        parts.append(field.label + u' ' + field.value + u'.');
    parts.append(explanation);
    if (hasTimeLimit())
        parts.append(Questions::timeLeft(acceptIsDefault, int(timeLimit.count())));
    return parts.join(u' ');
}

Question Questions::privacy()
{
    Question question;
    question.title = tr("Positioning");
    question.headline = tr("May applications know where you are?");
    question.explanation = {
        tr("An application on this device asks for its position."),
        tr("The position is worked out from satellites and from mobile and wireless networks nearby. "
           "Data about these networks may be sent to a location service."),
        tr("Until you allow it, no application is told the position. Closing this window means no."),
    };
    question.accept = tr("&Allow");
    question.decline = tr("Do &not allow");
    question.acceptMeans = tr("Applications may use the position of this device.");
    question.declineMeans = tr("No application is told the position. The Escape key does the same.");
    question.acceptIsDefault = true;
    return question;
}

Question Questions::locationRequest(const LocationRequest &request)
{
    const QString name = displayText(request.name);
    const QString id = displayText(request.id);

    Question question;
    question.title = tr("Location request");
    question.headline = tr("Somebody asks where you are");
    question.fields.append({tr("Asked by:"), name.isEmpty() ? tr("no name given") : name, !name.isEmpty()});
    if (!id.isEmpty())
        question.fields.append({tr("Identification:"), id});
    question.explanation = {
        tr("If you agree, the network tells them the position of this device."),
        tr("The network passed this request on. Nobody has checked who asks."),
    };
    question.accept = tr("&Send position");
    question.decline = tr("&Refuse");
    question.acceptMeans = tr("The position of this device is sent.");
    question.declineMeans = tr("The position is not sent. The Escape key does the same.");
    question.acceptIsDefault = request.defaultAccept;
    question.timeLimit = LocationRequestLimit;
    return question;
}

QString Questions::timeLeft(bool acceptIsDefault, int seconds)
{
    return acceptIsDefault
               ? tr("Without an answer, your position is sent in %n second(s).", nullptr, seconds)
               : tr("Without an answer, the request is refused in %n second(s).", nullptr, seconds);
}
