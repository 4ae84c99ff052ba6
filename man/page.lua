-- Turns a document of docs/ into a man page: the title and the paragraph below it become NAME, a block
-- of code behind them SYNOPSIS, what follows up to the first heading DESCRIPTION, and headings move up
-- a level. Tables become lists of their first columns, which is how man pages have options. There are
-- no links to files, so a link is its text.

function Link(link) return link.content end

-- The cells of a table's rows, each a list of blocks.
local function rows(tbl)
  local all = pandoc.List()
  for _, body in ipairs(tbl.bodies) do
    for _, row in ipairs(body.body) do
      all:insert(pandoc.List(row.cells):map(function(cell) return cell.contents end))
    end
  end
  return all
end

function Table(tbl)
  return pandoc.DefinitionList(rows(tbl):map(function(cells)
    local meaning = cells[#cells]
    if #cells == 3 then
      meaning = { pandoc.Para(pandoc.utils.blocks_to_inlines(cells[2], { pandoc.Str(": ") }) ..
        pandoc.List { pandoc.Str(": ") } .. meaning[1].content) }
    end
    return { cells[1][1].content, { meaning } }
  end))
end

-- Sections are upper case by habit.
local function section(text) return pandoc.Header(1, text:upper()) end

-- Under NAME, the index of man pages looks for "name - what it is" without a full stop.
local function name(title, paragraph)
  local what = pandoc.utils.stringify(paragraph):gsub("%.$", "")
  return pandoc.Para { pandoc.Str(title .. " - " .. what:sub(1, 1):lower() .. what:sub(2)) }
end

function Pandoc(doc)
  local title = pandoc.utils.stringify(doc.blocks[1])
  local blocks = pandoc.List {
    section("name"), name(title, doc.blocks[2]), section("synopsis"), doc.blocks[3], section("description") }
  for i = 4, #doc.blocks do
    local block = doc.blocks[i]
    if block.t == "Header" then
      block = block.level == 2 and section(pandoc.utils.stringify(block)) or
        pandoc.Header(block.level - 1, block.content)
    end
    blocks:insert(block)
  end
  return pandoc.Pandoc(blocks, { title = title:upper() })
end
