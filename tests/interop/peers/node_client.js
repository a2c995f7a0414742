#!/usr/bin/env node
// Runs the cases with node-coap, and prints what it saw of each.
//
//   node_client.js <folder that has node_modules>
'use strict';

const dgram = require('dgram');
const fs = require('fs');
const path = require('path');
const coap = require(path.join(path.resolve(process.argv[2]), 'node_modules', 'coap'));

const SERVER = '127.0.0.2';
const RELAY = '127.0.0.3';
const NO_ANSWER = 'no answer';
const SLOWNESS = Number(process.env.INTEROP_SLOWNESS || 1);  // how often its usual time a wait takes
const SETTLE_MS = 3000 * SLOWNESS;
const CHANGE_MS = 2500 * SLOWNESS;
const LOSSY_MS = 24000 * SLOWNESS;  // the third copy of a message may be the first seen
const MAX_ROWS = 5;
const MAX_PAYLOAD = 1024;
const LARGEST_BLOCK = 6;
const METHODS = { '0.02': 'POST' };
const FORMATS = { 'text/plain': 0, 'application/link-format': 40, 'application/json': 50 };

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const tell = (name, outcome) => process.stdout.write(`${name}\t${outcome}\n`);

// ---- words, the same as those of outcome.py ----

function pattern(size) {
  const bytes = Buffer.alloc(size, '.');
  for (let at = 0; at < size; at += 50) bytes[at] = 97 + (at / 50) % 26;
  return bytes;
}

const payloadOf = (request) =>
  request.pattern ? pattern(request.pattern) : Buffer.from(request.payload || '');

const rowsText = (rows) => (rows.length <= MAX_ROWS ? rows.join(' ') : `${rows.length} rows`);
const rowText = (row) => (row.op === 'd' ? `-${row.key}` : `+${row.key}=${row.val}`);

function idlRows(payload) {
  const rows = [];
  let at = 4;
  for (let left = payload.readUInt32LE(0); left > 0; --left) {
    const text = payload.toString('latin1', at + 2, at + 2 + payload.readUInt16LE(at));
    rows.push((text[0] === 'd' ? '-' : '+') + text.slice(2));
    at += 2 + text.length;
  }
  return rows;
}

function linksText(payload) {
  const links = payload.toString().split(',');
  if (links.length <= 2) return links.join(' ');
  const isKnown = links.includes('</test>') && links.includes('</obs>;obs');
  return `${links.length} links` + (isKnown ? ', </test> and </obs>;obs among them' : '');
}

function payloadText(payload, format) {
  const text = payload.toString('latin1');
  if (format === 40) return linksText(payload);
  if (text.startsWith('{"data"')) return rowsText(JSON.parse(text).data.map(rowText));
  if (payload.every((byte) => byte === 0)) return `${payload.length} zero bytes`;
  if (!/^[ -~]*$/.test(text)) return rowsText(idlRows(payload));
  if (text.length <= 40) return `'${text}'`;
  return `${text.length} bytes` + (payload.equals(pattern(text.length)) ? ' of the pattern' : '');
}

function typeOf(packet) {
  if (packet.ack) return 'ACK';
  return packet.confirmable ? 'CON' : 'NON';
}

// node-coap has made texts and numbers of the options' values.
function textOf(packet) {
  const joined = (name, by) =>
    packet.options.filter((each) => each.name === name).map((each) => each.value).join(by);
  const has = (name) => packet.options.some((each) => each.name === name);
  const words = ['ETag', 'Observe'].filter(has);
  if (has('Uri-Path')) words.push(`Uri-Path ${joined('Uri-Path', '/')}`);
  const format = FORMATS[joined('Content-Format', '')];
  if (has('Content-Format')) words.push(`format ${format}`);
  if (has('Uri-Query')) words.push(`Uri-Query ${joined('Uri-Query', '&')}`);
  for (const name of ['Location-Path', 'Location-Query']) {
    if (has(name)) words.push(`${name} ${joined(name, '/')}`);
  }
  const code = METHODS[packet.code] || packet.code;
  const head = [typeOf(packet), code].concat(words.length ? [words.join(', ')] : []).join(' ');
  return packet.payload.length ? `${head}: ${payloadText(packet.payload, format)}` : head;
}

// Log is what the server says of the observers of a path, from now on.
class Log {
  constructor(uri) {
    this.uri = uri;
    this.path = process.env.INTEROP_SERVER_LOG;
    this.start = fs.statSync(this.path).size;
  }
  numbers() {
    const lines = fs.readFileSync(this.path).subarray(this.start).toString().split('\n');
    return lines.map((line) => line.split(' '))
      .filter(([word, uri]) => word === 'observers' && uri === this.uri).map((words) => words[2]);
  }
  async waitLeft(seconds) {
    for (let i = 0; i < seconds * 10 * SLOWNESS && this.numbers().at(-1) !== '0'; ++i) await sleep(100);
  }
  text() { return `observers ${this.numbers().join(' ') || 'none'}`; }
}

// ---- requests ----

const OPTIONS = {
  accept: (call, value) => call.setOption('Accept', value),
  etag: (call, value) => call.setOption('ETag', [Buffer.from(value, 'hex')]),
  'if-match': (call, value) => call.setOption('If-Match', [Buffer.from(value, 'hex')]),
  'if-none-match': (call) => call.setOption('If-None-Match', Buffer.alloc(0)),
  block1: (call, value) => call.setOption('Block1', Buffer.of(value)),
  block2: (call, value) => call.setOption('Block2', Buffer.of(value)),
};

// newAgent has a socket of its own, which stays open until it is closed here.
function newAgent(request) {
  const socket = dgram.createSocket('udp4');
  const agent = new coap.Agent({ type: 'udp4', socket });
  agent.on('error', () => {});
  if (request.tokenless) agent._nextToken = () => Buffer.alloc(0);
  return { agent, socket };
}

function call(agent, request, observe) {
  const query = (request.query || []).concat(
    (request.checkCode || []).map((value) => `_ual-checkcode=${value}`));
  const made = agent.request({
    hostname: request.lossy ? RELAY : SERVER,
    pathname: `/${request.path}`,
    query: query.length ? query.join('&') : undefined,
    method: request.method || 'GET',
    confirmable: !request.non,
    observe,
  });
  made.on('error', () => {});
  const payload = payloadOf(request);
  const options = { ...request.options };
  if (payload.length > MAX_PAYLOAD && options.block1 === undefined) options.block1 = LARGEST_BLOCK;
  for (const [name, value] of Object.entries(options)) OPTIONS[name](made, value);
  made.end(payload.length ? payload : undefined);
  return made;
}

function response(made, ms) {
  return Promise.race([new Promise((resolve) => made.on('response', resolve)), sleep(ms)]);
}

async function runPlain(request) {
  const { agent, socket } = newAgent(request);
  const found = await response(call(agent, request), request.lossy ? LOSSY_MS : SETTLE_MS);
  socket.close();
  return found ? textOf(found._packet) : NO_ANSWER;
}

async function runSeparate(request) {
  const texts = [];
  const server = coap.createServer((incoming, answer) => {
    texts.push(textOf({ ...incoming._packet, payload: incoming.payload }));
    answer.code = '2.04';
    answer.end();
  });
  await new Promise((resolve) => server.listen(5683, '127.0.0.1', resolve));
  const answer = await runPlain(request);
  server.close();
  return [...texts, answer].join(' | ');
}

async function change(step) {
  await runPlain({ method: 'POST', path: 'ctl', payload: step });
  await sleep(CHANGE_MS);
}

// record notes each notification with its type, which the stream does not tell.
function record(stream, texts) {
  texts.push(textOf(stream._packet));
  const append = stream.append.bind(stream);
  stream.append = (packet) => {
    append(packet);
    texts.push(textOf(packet));
  };
  stream.on('data', () => {});
}

async function endObservation(stream, socket, request) {
  if (request.end === 'vanish') {
    socket.close();
  } else if (request.end !== 'gone') {
    stream.close(request.end === 'cancel');
  }
  if (request.end === 'vanish' || request.end === 'reset') await change(`set ${request.path} 1000 end0`);
}

async function runObserve(request) {
  await change(`set ${request.path} 1000 val0`);
  const log = new Log(request.path);
  const texts = [];
  const { agent, socket } = newAgent(request);
  const stream = await response(call(agent, request, true), SETTLE_MS);
  if (stream) {
    record(stream, texts);
    await sleep(SETTLE_MS);
    for (const step of request.steps) await change(step);
    await endObservation(stream, socket, request);
    await log.waitLeft(request.end === 'vanish' ? 120 : 5);
  } else {
    texts.push(NO_ANSWER);
  }
  if (request.end !== 'vanish') socket.close();
  return [...texts, log.text()].join(' | ');
}

function run(request) {
  if (request.steps) return runObserve(request);
  return request.separate ? runSeparate(request) : runPlain(request);
}

async function main() {
  const list = process.env.INTEROP_LIST;
  const file = list === 'server' ? 'cases.json' : 'direct.json';
  const text = fs.readFileSync(path.join(__dirname, file), 'utf8');
  const cases = JSON.parse(text.replaceAll('PEER', 'node'))[list]
    .filter(({ slow }) => !(slow && process.env.INTEROP_QUICK));
  for (const { id, request, cannot } of cases) {
    const reason = cannot && cannot.node;
    const outcome = reason ? `cannot: ${reason}`
      : await run(request).catch((error) => `broken: ${error.message}`);
    tell(id, outcome);
  }
  process.exit(0);
}

main();
