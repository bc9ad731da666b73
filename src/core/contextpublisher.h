#pragma once

#include "platform/contextprovider.h"

class QGeoCoordinate;

// What the daemon publishes in the context framework.
class ContextPublisher
{
public:
    // Two properties of a service on the session bus; start() makes them findable.
    explicit ContextPublisher(const Clock &clock);

    ContextProvider::Property &state() { return m_state; }
    ContextProvider::Property &coordinates() { return m_coordinates; }

    void start();
    void publishState(QLatin1StringView text);
    void publishCoordinates(const QGeoCoordinate &coordinate); // an invalid one is not published

private:
    ContextProvider::Service m_service;
    ContextProvider::Property m_state;
    ContextProvider::Property m_coordinates;
};
