#pragma once

#include <QCoreApplication>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>

// What a location request says of itself; the texts come from the network.
struct LocationRequest {
    int type = 0; // 0 or 1; both are shown alike
    bool defaultAccept = false;
    QString name = {};
    QString id = {};
};

// One dialog as a value: everything a person is shown and told. All texts are plain.
struct Question {
    struct Field {
        QString label;
        QString value;
        bool isKnown = true; // otherwise the value says that there is none
    };

    QString title;
    QString headline;
    QList<Field> fields;
    QStringList explanation; // one paragraph each
    QString accept;          // texts of the buttons, with their mnemonics
    QString decline;
    QString acceptMeans; // for screen readers
    QString declineMeans;
    bool acceptIsDefault = false;
    std::chrono::seconds timeLimit{0}; // 0: the question waits for its answer

    bool hasTimeLimit() const { return timeLimit.count() > 0; }
    // What a screen reader says when the dialog opens.
    QString spoken() const;
};

class Questions
{
    Q_DECLARE_TR_FUNCTIONS(Questions)
public:
    static constexpr std::chrono::seconds LocationRequestLimit{120};

    static Question privacy();
    static Question locationRequest(const LocationRequest &request);
    // What happens, and when, if nobody answers.
    static QString timeLeft(bool acceptIsDefault, int seconds);
};
