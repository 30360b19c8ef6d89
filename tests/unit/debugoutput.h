#pragma once

#include <QString>
#include <QtGlobal>
#include <string>
#include <vector>

// Keeps the lines of Qt's debug output while it lives. One at a time.
class DebugOutput
{
public:
    DebugOutput()
    {
        lines().clear();
        m_before = qInstallMessageHandler([](QtMsgType /*type*/, const QMessageLogContext& /*context*/,
                                             const QString& line) { lines().push_back(line.toStdString()); });
    }
    ~DebugOutput() { qInstallMessageHandler(m_before); }
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    static std::vector<std::string>& lines()
    {
        static std::vector<std::string> instance;
        return instance;
    }
    static std::string text()
    {
        std::string all;
        for (const std::string& line : lines())
            all += line + "\n";
        return all;
    }

private:
    QtMessageHandler m_before;
};
