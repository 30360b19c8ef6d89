// A broker on 127.0.0.1; tells on the standard output when it listens. Takes its port, and a JSON list of further doors:
// {"port": 8883, "certificate": FILE, "key": FILE, "clientAuthority": FILE} for TLS, where only clients with a certificate
// of the last one come in, and {"port": 1884, "users": {NAME: PASSWORD}} for passwords.
import { readFileSync } from 'node:fs'
import { createServer } from 'node:net'
import { createServer as createTlsServer } from 'node:tls'
import Aedes from 'aedes'

const users = {}
const broker = new Aedes({
  authenticate (client, name, password, done) {
    const known = users[client.conn.localPort]
    done(null, !known || (Object.hasOwn(known, name ?? '') && known[name] === String(password)))
  }
})

function serverOf (door) {
  if (!door.certificate) {
    return createServer(broker.handle)
  }
  return createTlsServer({
    cert: readFileSync(door.certificate),
    key: readFileSync(door.key),
    ca: door.clientAuthority && readFileSync(door.clientAuthority),
    requestCert: Boolean(door.clientAuthority)
  }, broker.handle)
}

const doors = [{ port: Number(process.argv[2]) }, ...JSON.parse(process.argv[3] ?? '[]')]
for (const door of doors) {
  if (door.users) {
    users[door.port] = door.users
  }
}
await Promise.all(doors.map((door) => new Promise((resolve) => serverOf(door).listen(door.port, '127.0.0.1', resolve))))
console.log('listening')
