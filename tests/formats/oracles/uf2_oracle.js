// Runs the uf2 package of the npm registry for the UF2 tests:
//   node uf2_oracle.js decode FILE        one line per block: the fields it decodes
//   node uf2_oracle.js encode LIST OUT    the blocks LIST gives, one a line:
//                                         FLAGS ADDRESS NUMBER TOTAL FAMILY PAYLOAD-HEX
'use strict';
const fs = require('fs');
const { decodeBlock, encodeBlock, blockSize } = require('uf2');

const [command, input, output] = process.argv.slice(2);
if (command === 'decode') {
    const file = fs.readFileSync(input);
    for (let at = 0; at < file.length; at += blockSize) {
        const b = decodeBlock(new Uint8Array(file.buffer, file.byteOffset + at, blockSize));
        console.log([b.flags, b.flashAddress, b.blockNumber, b.totalBlocks, b.boardFamily,
                     Buffer.from(b.payload).toString('hex')].join(' '));
    }
} else if (command === 'encode') {
    const lines = fs.readFileSync(input, 'utf8').split('\n').filter((l) => l.length > 0);
    const out = new Uint8Array(lines.length * blockSize);
    lines.forEach((line, i) => {
        const [flags, address, number, total, family, payload] = line.split(' ');
        encodeBlock({
            flags: Number(flags),
            flashAddress: Number(address),
            blockNumber: Number(number),
            totalBlocks: Number(total),
            boardFamily: Number(family),
            payload: Uint8Array.from(Buffer.from(payload, 'hex')),
        }, out, i * blockSize);
    });
    fs.writeFileSync(output, out);
} else {
    console.error('usage: uf2_oracle.js decode FILE | encode LIST OUT');
    process.exit(2);
}
