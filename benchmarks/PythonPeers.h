#pragma once

#include "Rows.h"

#include <sys/stat.h>

#include <cstdio>
#include <stdexcept>

namespace bench
{

/// A Python program that does the rows of peers.py when it is asked to, so that h5py and PyTables take turns with the
/// other sides. Questions go to its input, answers come through a named pipe.
class PythonPeers
{
public:
    PythonPeers()
    {
        const std::string answers = PathOf("answers");
        mkfifo(answers.c_str(), S_IRUSR | S_IWUSR);
        m_questions = popen((PEERS_COMMAND " > '" + answers + "'").c_str(), "w");
        m_answers = std::fopen(answers.c_str(), "r");
    }
    PythonPeers(const PythonPeers&) = delete;
    PythonPeers& operator=(const PythonPeers&) = delete;
    ~PythonPeers()
    {
        pclose(m_questions);
        std::fclose(m_answers);
    }

    /// The side of a peer in a row; an empty one if the peer doesn't know the row.
    Side For(const std::string& peer, const std::string& row)
    {
        if (Ask(peer, row, 0) < 0)
        {
            return {};
        }
        return [=](std::size_t size)
        {
            Turn turn;
            turn.seconds = Ask(peer, row, size);
            return turn;
        };
    }

private:
    // The seconds of a turn; a size of 0 asks whether the peer knows the row, and the answer is negative if it doesn't.
    double Ask(const std::string& peer, const std::string& row, std::size_t size)
    {
        double seconds = -1;
        std::fprintf(m_questions, "%s|%s|%zu\n", peer.c_str(), row.c_str(), size);
        std::fflush(m_questions);
        if (std::fscanf(m_answers, "%lf", &seconds) != 1)
        {
            throw std::runtime_error("the Python peers ended in: " + row);
        }
        return seconds;
    }

    FILE* m_questions;
    FILE* m_answers;
};

} // namespace bench
