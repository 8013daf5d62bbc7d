// Records, and follows the time zone, with QtDBus: follow_qt [ZONE]
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QSet>
#include <QTextStream>

static const QString service = QStringLiteral("com.tavilon.common.Controller1");
static const QString path = QStringLiteral("/com/tavilon/common/Controller1");
static const QString control = QStringLiteral("com.tavilon.common.Controller1.Control");

class Follower : public QObject
{
    Q_OBJECT

  public:
    explicit Follower(QDBusConnection bus)
    {
        // By path and interface, without a service: the signals of a QDBusInterface never tell of the two.
        for (const QString& name : awaited_)
        {
            bus.connect(QString(), path, control, name, this, SLOT(Hear(QDBusMessage)));
        }
    }

  public slots:
    void Hear(const QDBusMessage& message)
    {
        if (awaited_.remove(message.member()))
        {
            QTextStream(stdout) << message.member() << '\n';
        }
        if (awaited_.isEmpty())
        {
            QCoreApplication::quit();
        }
    }

  private:
    QSet<QString> awaited_{"TimezoneChanged", "TimeChanged"};
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusInterface controller(service, path, control, bus);
    controller.setTimeout(120000);
    Follower follower(bus);

    const QString zone = controller.property("GetTimezone").toString();
    out << "zone: " << zone << Qt::endl;
    const QDBusMessage started = controller.call("VideoRecordStart", 1920U, 1080U, 90U);
    out << "start: " << started.arguments().last().toString() << Qt::endl;
    if (started.arguments().first().toInt() == 0)
    {
        out << "stop: " << controller.call("VideoRecordStop").arguments().last().toString() << Qt::endl;
    }

    controller.call("SetTimezone", argc > 1 ? QString::fromLocal8Bit(argv[1]) : zone);
    QCoreApplication::exec();
    // Asked for again, as a QDBusInterface does for each property: keep none, no PropertiesChanged tells of it.
    out << "zone: " << controller.property("GetTimezone").toString() << Qt::endl;
    return 0;
}

#include "follow_qt.moc"
