// A broker on 127.0.0.1; takes its port and tells on the standard output when it listens.
import { createServer } from 'node:net'
import Aedes from 'aedes'

const port = Number(process.argv[2])
const broker = new Aedes()

createServer(broker.handle).listen(port, '127.0.0.1', () => console.log('listening'))
