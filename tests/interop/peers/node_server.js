#!/usr/bin/env node
// What our client calls: a server on 127.0.0.2:5683 that puts the path into its answers.
//
//   node_server.js <folder that has node_modules>
'use strict';

const path = require('path');
const coap = require(path.join(path.resolve(process.argv[2]), 'node_modules', 'coap'));

const SLOW_MS = 1000;
const CHECK_CODE = '_ual-checkcode=';

function pattern(size) {
  const bytes = Buffer.alloc(size, '.');
  for (let at = 0; at < size; at += 50) bytes[at] = 97 + (at / 50) % 26;
  return bytes;
}

function setPath(answer, uri) {
  answer.setOption('Uri-Path', uri.split('/').map((part) => Buffer.from(part)));
}

function end(answer, uri, code, payload) {
  if (uri) setPath(answer, uri);
  answer.code = code;
  answer.end(payload);
}

// Table has a check code, which stands in the ETag of all that is sent.
class Table {
  constructor(uri, size) {
    this.uri = uri;
    this.code = 100;
    this.rows = new Map();
    for (let i = 0; i < size; ++i) this.rows.set(String(1000 + i), 'val0');
    this.streams = new Map();  // by token
  }

  send(answer, rows, queries) {
    setPath(answer, this.uri);
    answer.setOption('ETag', [Buffer.of(this.code)]);
    if (queries.length) answer.setOption('Uri-Query', queries.map((text) => Buffer.from(text)));
    answer.statusCode = '2.05';
    answer.write(Buffer.from(JSON.stringify({ data: rows })));
    answer._packet.options = [];
  }

  allRows() {
    return [...this.rows].sort().map(([key, val]) => ({ op: 'u', key, val }));
  }

  get(request, answer) {
    const token = request._packet.token.toString('hex');
    this.streams.delete(token);
    if (request.headers.Observe !== 0) return end(answer, this.uri, '2.05');
    this.streams.set(token, answer);
    answer.on('finish', () => this.streams.delete(token));
    const queries = request._packet.options.filter((each) => each.name === 'Uri-Query')
      .map((each) => each.value.toString()).filter((text) => text.startsWith(CHECK_CODE));
    if (queries[0] !== CHECK_CODE + this.code) return this.send(answer, this.allRows(), queries);
    setPath(answer, this.uri);
    answer.statusCode = '2.05';
    return answer.write(Buffer.alloc(0));
  }

  notify(row) {
    for (const stream of this.streams.values()) this.send(stream, [row], []);
  }

  change(verb, key, val) {
    this.code += 1;
    if (verb === 'del') this.rows.delete(key);
    else this.rows.set(key, val);
    if (verb === 'set') this.notify({ op: 'u', key, val });
    if (verb === 'del') this.notify({ op: 'd', key });
  }
}

const tables = new Map([['table', 2], ['refused', 2]]
  .map(([uri, size]) => [uri, new Table(uri, size)]));

const CODES = { POST: '2.04', PUT: '2.04', DELETE: '2.02', GET: '2.05' };

function echo(uri, request, answer) {
  const payloads = { GET: request.payload, DELETE: 'gone' };
  end(answer, uri, CODES[request.method], payloads[request.method]);
}

function large(request, answer) {
  if (request.method === 'GET') {
    end(answer, 'large', '2.05', pattern(Number(request.payload.toString())));
  } else {
    const isGood = request.payload.equals(pattern(request.payload.length));
    end(answer, 'large', isGood ? '2.04' : '4.00');
  }
}

function control(request, answer) {
  const [verb, uri, key, val] = request.payload.toString().split(' ');
  end(answer, null, '2.04');
  tables.get(uri).change(verb, key, val);
}

function serve(request, answer) {
  const uri = request.url.split('?')[0].slice(1);
  if (tables.has(uri)) tables.get(uri).get(request, answer);
  else if (uri === 'echo') echo('echo', request, answer);
  else if (uri === 'bare') echo(null, request, answer);
  else if (uri === 'slow') setTimeout(() => echo('slow', request, answer), SLOW_MS);
  else if (uri === 'large') large(request, answer);
  else if (uri === 'ctl') control(request, answer);
  else end(answer, null, '4.04');
}

const server = coap.createServer(serve);
server.on('error', () => {});
server.listen(5683, '127.0.0.2', () => process.stdout.write('serving\n'));
