// The cost of the relay's delivery is compared with that of this router. It is the shortest program that does the same
// routing, without boxes, members, mail or proofs. The first message on a link is its key; every later one goes to the
// links of the key in its bytes 32 to 63.
'use strict';

const { WebSocketServer } = require('ws');

const linksOf = new Map();
const server = new WebSocketServer({ host: '127.0.0.1', port: 0, perMessageDeflate: false });

server.on('listening', () => console.log('router listening on 127.0.0.1:' + server.address().port));

server.on('connection', (link) => {
    let key = null;

    link.on('message', (pack) => {
        if (key === null) {
            key = pack.toString('latin1', 0, 32);
            if (!linksOf.has(key)) linksOf.set(key, new Set());
            linksOf.get(key).add(link);
            link.send('welcome');
            return;
        }
        const targets = linksOf.get(pack.toString('latin1', 32, 64));
        if (targets === undefined) return;
        for (const target of targets) target.send(pack);
    });

    link.on('close', () => {
        if (key !== null) linksOf.get(key).delete(link);
    });
});
