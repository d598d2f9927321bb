#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

namespace vellumline::test {

/// A secret that this process can make, and look for in its own memory without having it there because it
/// looks.
class Canary {
  public:
    explicit Canary(std::uint64_t number) {
        // Forty letters that a token could have, masked from the start.
        for (int i = 0; i < 40; ++i) {
            number = number * 6364136223846793005ULL + 1442695040888963407ULL;
            masked_.append(static_cast<char>(('a' + (number >> 33) % 26) ^ mask));
        }
    }

    QByteArray bytes() const {
        QByteArray made(masked_.size(), Qt::Uninitialized);
        for (qsizetype i = 0; i < masked_.size(); ++i)
            made[i] = static_cast<char>(masked_.at(i) ^ mask);
        return made;
    }
    QString text() const {
        QString made(masked_.size(), Qt::Uninitialized);
        for (qsizetype i = 0; i < masked_.size(); ++i)
            made[i] = QLatin1Char(static_cast<char>(masked_.at(i) ^ mask));
        return made;
    }

    /// Where the secret, or half of it, is in memory that can be written: "[heap] as UTF-16", and so on.
    /// Stacks are left out: what a function leaves there is overwritten by the next ones, at no moment that
    /// could be named.
    QStringList places() const {
        QStringList found;
        QFile maps(QStringLiteral("/proc/self/maps"));
        const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
        if (memory < 0 || !maps.open(QIODevice::ReadOnly))
            return {QStringLiteral("the memory cannot be read")};
        const QList<QByteArray> lines = maps.readAll().split('\n');
        for (const QByteArray& line : lines) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.size() < 5 || !fields.at(1).startsWith("rw") || line.contains("[stack"))
                continue;
            const QList<QByteArray> ends = fields.at(0).split('-');
            search(memory, ends.at(0).toULongLong(nullptr, 16), ends.at(1).toULongLong(nullptr, 16),
                   fields.size() > 5 ? QString::fromLocal8Bit(fields.at(5)) : QStringLiteral("unnamed"),
                   found);
        }
        close(memory);
        return found;
    }

  private:
    static constexpr char mask = 0x55;
    static constexpr std::size_t step = 65536, overlap = 256;

    bool standsAt(const char* memory, qsizetype width) const {
        for (qsizetype i = 0; i < masked_.size() / 2; ++i) {
            if ((memory[i * width] ^ mask) != masked_.at(i) || (width == 2 && memory[i * width + 1] != 0))
                return false;
        }
        return true;
    }

    void search(int memory, std::uint64_t begin, std::uint64_t end, const QString& name,
                QStringList& found) const {
        static std::array<char, step + overlap> piece;
        for (std::uint64_t at = begin; at < end; at += step) {
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(end - at, piece.size()));
            const ssize_t got = pread(memory, piece.data(), wanted, static_cast<off_t>(at));
            for (ssize_t i = 0; i + 2 * masked_.size() <= got && i < static_cast<ssize_t>(step); ++i) {
                const auto address = reinterpret_cast<std::uint64_t>(piece.data());
                const std::uint64_t here = at + static_cast<std::uint64_t>(i);
                if (here >= address && here < address + piece.size())
                    continue; // what was just read
                if (standsAt(piece.data() + i, 1))
                    found.append(name + QStringLiteral(" as bytes"));
                else if (standsAt(piece.data() + i, 2))
                    found.append(name + QStringLiteral(" as UTF-16"));
            }
        }
        piece.fill(0);
    }

    QByteArray masked_;
};

} // namespace vellumline::test
