#include "logging.h"
#include "mqttclientmanager.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <QCoreApplication>
#include <QHashFunctions>
#include <semaphore.h>
#include <unistd.h>

namespace {

// The only link between signal context and the clean-up thread.
sem_t LockSigSemaphore;
std::atomic<int> SignalNumber{0};
static_assert(std::atomic<int>::is_always_lock_free); // a handler may store into it

constexpr int TerminationSignals[] = {SIGINT, SIGQUIT, SIGILL, SIGABRT, SIGFPE, SIGALRM, SIGTERM};

void CleanUpSignalHandler(int number)
{
    SignalNumber = number;
    sem_post(&LockSigSemaphore);
}

// A broken socket must not end the process. The line is formed by hand: the interrupted thread may hold a stream's
// lock.
void SIGPIPESignalHandler(int number)
{
    const int savedErrno = errno;
    char line[] = "MQTT SIGPIPESignalHandler:Catch signal 00\n";
    char* digits = line + sizeof line - 4;
    digits[0] = static_cast<char>('0' + number / 10);
    digits[1] = static_cast<char>('0' + number % 10);
    // When the standard error itself is the broken pipe, nobody hears this line, and each one would bring the next
    // signal for ever: from then on the error code of the write that failed is all that is needed.
    if (write(STDERR_FILENO, line, sizeof line - 1) < 0 && errno == EPIPE)
        signal(number, SIG_IGN);
    errno = savedErrno;
}

void installHandler(int number, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART | SA_SIGINFO; // the handlers take the number only; the rest does no harm
    sigaction(number, &action, nullptr);
}

void InitSignalHandler()
{
    sem_init(&LockSigSemaphore, 0, 0);
    for (const int number : TerminationSignals)
        installHandler(number, CleanUpSignalHandler);
    installHandler(SIGPIPE, SIGPIPESignalHandler);
}

// Sleeps until a termination signal comes, takes the manager down, and lets the process die of that signal.
void* CleanUpTreadMQTT(void* manager)
{
    while (sem_wait(&LockSigSemaphore) != 0) {
    }
    static_cast<MQTTClientManager*>(manager)->Finalize();
    const int number = SignalNumber;
    signal(number, SIG_DFL);
    raise(number);
    return nullptr;
}

// The positions of the command line are fixed; one that isn't there equals nothing.
bool isArgument(int argc, char* argv[], int position, const char* word)
{
    return position < argc && std::strcmp(argv[position], word) == 0;
}

} // namespace

int main(int argc, char* argv[])
{
    // Configuration files that are written back keep one order of attributes, start after start.
    qSetGlobalQHashSeed(0);

    const QCoreApplication application(argc, argv);
    const bool verbose = isArgument(argc, argv, 2, "true");
    // Intended: "x true" switches the dumps on and leaves the log as it is.
    setUpLogging(isArgument(argc, argv, 1, "-verbose") && verbose ? plog::debug : plog::info);

    MQTTClientManager* manager = MQTTClientManager::instance();
    manager->SetVerboseMode(verbose);
    if (!manager->Initilize())
        return 0; // a configuration that can't be used is a normal end

    InitSignalHandler();
    pthread_t cleanUpThread;
    pthread_create(&cleanUpThread, nullptr, CleanUpTreadMQTT, manager);

    manager->ManageTagsRegistration();
    manager->ManageClientBrokers();
    manager->ManageSubscriptions(true);
    manager->ManagePeriodicPublications();
    manager->StartListeningToRequestsAndScheduledActions();
    manager->RunAutoTest(isArgument(argc, argv, 4, "true"));
    const bool isClockSet = manager->CheckSystemTime() != SC_AC_ERROR_SYSTEM_TIME;
    manager->UpdateProcessStatus(isClockSet ? PS_RUNNING : PS_TIME_NOT_SET);
    return QCoreApplication::exec();
}
